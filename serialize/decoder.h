// Reads little-endian integers and length-prefixed strings from a reader.
#ifndef ZELK_ELF_SERIALIZE_DECODER_H_
#define ZELK_ELF_SERIALIZE_DECODER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "serialize/mem_reader.h"
#include "serialize/result.h"

namespace tolva_lib {
namespace serialize {
namespace binary {

// Stateless apart from the reader it refers to: no position, no error flag.
// Every read reports its own outcome. A failed read leaves the reader at its
// end.
template <typename Reader>
class Decoder {
 public:
  // Carries no detail: a decode either completes or it does not.
  struct ErrTy {};

  template <typename T>
  using ResultTy = Result<T, ErrTy>;

  explicit Decoder(Reader& reader) : reader_(&reader) {}

  ResultTy<uint8_t> readU8() { return readFixed<uint8_t>(); }
  ResultTy<uint16_t> readU16() { return readFixed<uint16_t>(); }
  ResultTy<uint32_t> readU32() { return readFixed<uint32_t>(); }
  ResultTy<uint64_t> readU64() { return readFixed<uint64_t>(); }

  // A uint64_t byte length, then that many bytes. The length is compared in
  // full with what remains before anything is allocated.
  ResultTy<std::string> readStr() {
    reader_->markValue();
    ResultTy<uint64_t> len = readFixedUnmarked<uint64_t>();
    if (len.isErr()) return ErrTy{};
    uint64_t n = len.getOk();
    if (n > static_cast<uint64_t>(reader_->remaining())) {
      skipToEnd();
      return ErrTy{};
    }
    std::string s;
    s.resize(static_cast<size_t>(n));
    if (n != 0) reader_->read(&s[0], static_cast<size_t>(n));
    return s;
  }

  size_t remaining() const { return reader_->remaining(); }
  Reader& reader() { return *reader_; }

  // Abandons the rest of the input, as a read that runs out would.
  void skipToEnd() { reader_->skip(reader_->remaining()); }

 private:
  template <typename T>
  ResultTy<T> readFixed() {
    reader_->markValue();
    return readFixedUnmarked<T>();
  }

  // Copies what is there into a zeroed temporary; fewer than sizeof(T) bytes
  // is an error, and the reader has then been advanced to its end.
  template <typename T>
  ResultTy<T> readFixedUnmarked() {
    uint8_t b[sizeof(T)] = {};
    if (reader_->read(b, sizeof(T)) != sizeof(T)) return ErrTy{};
    T v = 0;
    for (size_t i = 0; i < sizeof(T); ++i) v |= static_cast<T>(static_cast<T>(b[i]) << (8 * i));
    return v;
  }

  Reader* reader_;
};

}  // namespace binary
}  // namespace serialize
}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_DECODER_H_
