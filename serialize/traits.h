// The trait templates through which every type is decoded and encoded, and
// the codecs of the scalar types and of std::string.
#ifndef ZELK_ELF_SERIALIZE_TRAITS_H_
#define ZELK_ELF_SERIALIZE_TRAITS_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "absl/types/variant.h"
#include "serialize/result.h"

namespace tolva_lib {
namespace serialize {

// Specialised per type, or for a family of types through `Enable`:
//   template <typename D>
//   static Result<T, typename D::ErrTy> decode(D& decoder);
template <typename T, typename Enable = void>
struct Decodable;

// Specialised per type, or for a family of types through `Enable`:
//   template <typename E>
//   static Result<absl::monostate, typename E::ErrTy>
//   encode(const T& value, E& encoder);
template <typename T, typename Enable = void>
struct Encodable;

template <typename T, typename D>
using DecodeResult = Result<T, typename D::ErrTy>;
template <typename E>
using EncodeResult = Result<absl::monostate, typename E::ErrTy>;

// Encodes `value`. Writing into memory cannot fail, so the Ok every encode
// returns is not worth a test; composite encoders write their parts with this.
template <typename T, typename E>
void put(const T& value, E& e) {
  Encodable<T>::encode(value, e);
}

// The fewest bytes one encoded T can occupy. Decoders use it to refuse
// counts that the remaining input cannot hold before allocating for them.
template <typename T, typename Enable = void>
struct MinWireSize {
  static constexpr size_t value = 1;
};
template <>
struct MinWireSize<uint16_t> {
  static constexpr size_t value = 2;
};
template <>
struct MinWireSize<uint32_t> {
  static constexpr size_t value = 4;
};
template <>
struct MinWireSize<uint64_t> {
  static constexpr size_t value = 8;
};
template <>
struct MinWireSize<std::string> {
  static constexpr size_t value = 8;  // the length alone
};

#define ZELK_SERIALIZE_SCALAR_CODEC(T, Read, Write)                     \
  template <>                                                           \
  struct Decodable<T> {                                                 \
    template <typename D>                                               \
    static DecodeResult<T, D> decode(D& d) {                            \
      return d.Read();                                                  \
    }                                                                   \
  };                                                                    \
  template <>                                                           \
  struct Encodable<T> {                                                 \
    template <typename E>                                               \
    static EncodeResult<E> encode(const T& v, E& e) {                   \
      e.Write(v);                                                       \
      return absl::monostate{};                                         \
    }                                                                   \
  };

ZELK_SERIALIZE_SCALAR_CODEC(uint8_t, readU8, writeU8)
ZELK_SERIALIZE_SCALAR_CODEC(uint16_t, readU16, writeU16)
ZELK_SERIALIZE_SCALAR_CODEC(uint32_t, readU32, writeU32)
ZELK_SERIALIZE_SCALAR_CODEC(uint64_t, readU64, writeU64)
#undef ZELK_SERIALIZE_SCALAR_CODEC

template <>
struct Decodable<std::string> {
  template <typename D>
  static DecodeResult<std::string, D> decode(D& d) {
    return d.readStr();
  }
};

// The byte length as uint64_t, then the bytes; no terminator.
template <>
struct Encodable<std::string> {
  template <typename E>
  static EncodeResult<E> encode(const std::string& s, E& e) {
    e.writeU64(static_cast<uint64_t>(s.size()));
    e.writeBytes(s.data(), s.size());
    return absl::monostate{};
  }
};

}  // namespace serialize
}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_TRAITS_H_
