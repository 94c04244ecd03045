// Writes little-endian integers and raw bytes through a writer.
#ifndef ZELK_ELF_SERIALIZE_ENCODER_H_
#define ZELK_ELF_SERIALIZE_ENCODER_H_

#include <cstddef>
#include <cstdint>

#include "absl/types/variant.h"
#include "serialize/mem_writer.h"
#include "serialize/result.h"

namespace tolva_lib {
namespace serialize {
namespace binary {

// Stateless apart from the writer it refers to. Writing into memory has no
// failure of its own; ErrTy exists so that encode results keep one shape and
// a writer that can fail can report it. Allocation failure propagates as
// std::bad_alloc.
template <typename Writer>
class Encoder {
 public:
  struct ErrTy {};
  using ResultTy = Result<absl::monostate, ErrTy>;

  explicit Encoder(Writer& writer) : writer_(&writer) {}

  void writeU8(uint8_t v) { writeFixed(v); }
  void writeU16(uint16_t v) { writeFixed(v); }
  void writeU32(uint32_t v) { writeFixed(v); }
  void writeU64(uint64_t v) { writeFixed(v); }
  void writeBytes(const void* src, size_t n) {
    if (n != 0) writer_->write(src, n);
  }

  Writer& writer() { return *writer_; }

 private:
  template <typename T>
  void writeFixed(T v) {
    uint8_t b[sizeof(T)];
    for (size_t i = 0; i < sizeof(T); ++i) b[i] = static_cast<uint8_t>(v >> (8 * i));
    writer_->write(b, sizeof(T));
  }

  Writer* writer_;
};

}  // namespace binary
}  // namespace serialize
}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_ENCODER_H_
