// Appends bytes to a caller-owned vector.
#ifndef ZELK_ELF_SERIALIZE_MEM_WRITER_H_
#define ZELK_ELF_SERIALIZE_MEM_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tolva_lib {
namespace io {

// The vector grows geometrically, so a payload is built in one buffer and
// handed over whole. Allocation failure propagates as std::bad_alloc.
class MemWriter {
 public:
  explicit MemWriter(std::vector<uint8_t>& out) : out_(&out) {}

  void write(const void* src, size_t n) {
    const uint8_t* p = static_cast<const uint8_t*>(src);
    out_->insert(out_->end(), p, p + n);
  }

 private:
  std::vector<uint8_t>* out_;
};

}  // namespace io
}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_MEM_WRITER_H_
