// A forward-only cursor over borrowed input bytes.
#ifndef ZELK_ELF_SERIALIZE_MEM_READER_H_
#define ZELK_ELF_SERIALIZE_MEM_READER_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tolva_lib {
namespace io {

// Owns nothing: the bytes must outlive the reader. Reads never go past the
// end; a short read copies what is left and reports how much that was.
class MemReader {
 public:
  MemReader(const void* data, size_t size)
      : p_(static_cast<const uint8_t*>(data)), remaining_(size) {}

  // Copies min(n, remaining()) bytes to `dst`, advances past them and
  // returns their count.
  size_t read(void* dst, size_t n) {
    size_t c = n < remaining_ ? n : remaining_;
    if (c != 0) std::memcpy(dst, p_, c);
    p_ += c;
    remaining_ -= c;
    return c;
  }

  // Advances by min(n, remaining()) bytes without copying them.
  size_t skip(size_t n) {
    size_t c = n < remaining_ ? n : remaining_;
    p_ += c;
    remaining_ -= c;
    return c;
  }

  size_t remaining() const { return remaining_; }

 private:
  const uint8_t* p_;
  size_t remaining_;
};

}  // namespace io
}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_MEM_READER_H_
