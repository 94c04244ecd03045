// Fixed-width field access in either byte order, and the on-disk record sizes
// of both classes.
#ifndef ZELK_ELF_ENGINE_BYTE_ORDER_H_
#define ZELK_ELF_ENGINE_BYTE_ORDER_H_

#include <cstddef>
#include <cstdint>

namespace zelk_elf {
namespace engine {

// How one image stores its fields: byte order and class.
class Codec {
 public:
  Codec(bool msb, bool wide) : msb_(msb), wide_(wide) {}

  bool msb() const { return msb_; }
  bool wide() const { return wide_; }
  // Width of address, offset, size, flags, alignment and entry-size fields.
  size_t addrWidth() const { return wide_ ? 8 : 4; }
  // Keeps what an address-sized field can hold.
  uint64_t fit(uint64_t v) const { return wide_ ? v : (v & 0xFFFFFFFFu); }

  uint64_t read(const uint8_t* p, size_t width) const {
    uint64_t v = 0;
    for (size_t i = 0; i < width; ++i) {
      v |= uint64_t{p[msb_ ? width - 1 - i : i]} << (8 * i);
    }
    return v;
  }
  void write(uint8_t* p, size_t width, uint64_t v) const {
    for (size_t i = 0; i < width; ++i) {
      p[msb_ ? width - 1 - i : i] = static_cast<uint8_t>(v >> (8 * i));
    }
  }

  size_t headerSize() const { return wide_ ? 64 : 52; }
  size_t sectionHeaderSize() const { return wide_ ? 64 : 40; }
  size_t segmentHeaderSize() const { return wide_ ? 56 : 32; }

 private:
  bool msb_;
  bool wide_;
};

}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_ENGINE_BYTE_ORDER_H_
