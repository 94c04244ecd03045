// A forward-only cursor over borrowed input bytes.
#ifndef ZELK_ELF_SERIALIZE_MEM_READER_H_
#define ZELK_ELF_SERIALIZE_MEM_READER_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "serialize/byte_view.h"

namespace tolva_lib {
namespace io {

// Owns nothing: the bytes must outlive the reader. Reads never go past the
// end; a short read copies what is left and reports how much that was.
//
// Decoders mark where each value, list element, map entry or refused count
// begins, so that a failed decode can say where it stopped without decoding
// again; the marks cost a store each.
class MemReader {
 public:
  // What the last mark was set for; kCrowdedKey is a map entry whose key
  // was refused for crowding a hash bucket.
  enum class Unit { kValue, kElement, kEntry, kCount, kCrowdedKey };

  MemReader(const void* data, size_t size)
      : bytes_(static_cast<const uint8_t*>(data), size) {}
  explicit MemReader(ByteView bytes) : bytes_(bytes) {}

  // Copies min(n, remaining()) bytes to `dst`, advances past them and
  // returns their count.
  size_t read(void* dst, size_t n) {
    const size_t c = n < remaining() ? n : remaining();
    if (c != 0) std::memcpy(dst, bytes_.data() + pos_, c);
    pos_ += c;
    return c;
  }

  // Advances by min(n, remaining()) bytes without copying them.
  size_t skip(size_t n) {
    const size_t c = n < remaining() ? n : remaining();
    pos_ += c;
    return c;
  }

  size_t remaining() const { return bytes_.size() - pos_; }
  size_t position() const { return pos_; }
  size_t size() const { return bytes_.size(); }

  // A scalar or string starts here.
  void markValue() { value_at_ = pos_; }
  // An element, entry or count starts at `at`; a later mark replaces it.
  void mark(Unit unit, size_t at) {
    unit_ = unit;
    unit_at_ = at;
  }

  // Where a failed decode stopped: the innermost element, entry or refused
  // count it was in, else the value it could not read.
  Unit failedUnit() const { return unit_; }
  size_t failedAt() const { return unit_ == Unit::kValue ? value_at_ : unit_at_; }

 private:
  ByteView bytes_;
  size_t pos_ = 0;
  size_t value_at_ = 0;
  Unit unit_ = Unit::kValue;
  size_t unit_at_ = 0;
};

}  // namespace io
}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_MEM_READER_H_
