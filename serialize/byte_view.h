// The one bounds-checked way to look at input bytes. Every offset, length
// and table that comes from an image or a payload is checked here, with
// arithmetic that cannot overflow; what lies outside gives nothing.
#ifndef ZELK_ELF_SERIALIZE_BYTE_VIEW_H_
#define ZELK_ELF_SERIALIZE_BYTE_VIEW_H_

#include <cstddef>
#include <cstdint>

#include "absl/types/optional.h"
#include "absl/types/span.h"

namespace tolva_lib {
namespace io {

// A borrowed, read-only range of bytes.
class ByteView {
 public:
  constexpr ByteView() = default;
  constexpr ByteView(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  ByteView(absl::Span<const uint8_t> bytes)  // NOLINT: spans convert freely
      : data_(bytes.data()), size_(bytes.size()) {}

  const uint8_t* data() const { return data_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  absl::Span<const uint8_t> span() const { return {data_, size_}; }
  uint8_t operator[](size_t i) const { return data_[i]; }

  // Whether [offset, offset + length) lies wholly inside.
  bool contains(uint64_t offset, uint64_t length) const {
    return offset <= size_ && length <= size_ - offset;
  }

  // The `length` bytes at `offset`, or nothing when any of them lies outside.
  absl::optional<ByteView> slice(uint64_t offset, uint64_t length) const {
    if (!contains(offset, length)) return absl::nullopt;
    return ByteView(data_ + offset, static_cast<size_t>(length));
  }

  // Everything from `offset` on; empty when `offset` lies at or past the end.
  ByteView from(uint64_t offset) const {
    if (offset >= size_) return ByteView();
    return ByteView(data_ + offset, size_ - static_cast<size_t>(offset));
  }

  // A table of `count` records of `record_size` bytes, each `entry_size`
  // bytes after the one before, starting at `offset`.
  class Table {
   public:
    size_t size() const { return count_; }
    // Record i of the table (i < size()).
    ByteView operator[](size_t i) const {
      return ByteView(base_ + i * entry_size_, record_size_);
    }

   private:
    friend class ByteView;
    Table(const uint8_t* base, size_t count, size_t entry_size, size_t record_size)
        : base_(base), count_(count), entry_size_(entry_size), record_size_(record_size) {}
    const uint8_t* base_;
    size_t count_;
    size_t entry_size_;
    size_t record_size_;
  };

  // The whole table, or nothing when a record lies outside (or the records
  // would overlap: `entry_size` below `record_size`). An empty table always
  // exists.
  absl::optional<Table> table(uint64_t offset, uint64_t count,
                              uint64_t entry_size, uint64_t record_size) const {
    if (count == 0) return Table(data_, 0, 0, 0);
    if (entry_size < record_size) return absl::nullopt;
    const absl::optional<uint64_t> last = entryOffset(offset, count - 1, entry_size);
    if (!last || !contains(*last, record_size)) return absl::nullopt;
    return Table(data_ + offset, static_cast<size_t>(count),
                 static_cast<size_t>(entry_size), static_cast<size_t>(record_size));
  }

  // offset + index * entry_size, or nothing when it does not fit 64 bits.
  static absl::optional<uint64_t> entryOffset(uint64_t offset, uint64_t index,
                                              uint64_t entry_size) {
    if (entry_size != 0 && index > UINT64_MAX / entry_size) return absl::nullopt;
    const uint64_t step = index * entry_size;
    if (offset > UINT64_MAX - step) return absl::nullopt;
    return offset + step;
  }

 private:
  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace io
}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_BYTE_VIEW_H_
