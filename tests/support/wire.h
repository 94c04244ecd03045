// Bytes on the wire: little-endian integers and length-prefixed strings
// written out by hand, and values encoded and decoded through the codecs.
#ifndef ZELK_ELF_TESTS_SUPPORT_WIRE_H_
#define ZELK_ELF_TESTS_SUPPORT_WIRE_H_

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "absl/types/optional.h"
#include "gtest/gtest.h"
#include "serialize/containers.h"
#include "serialize/decoder.h"
#include "serialize/encoder.h"
#include "serialize/mem_reader.h"
#include "serialize/mem_writer.h"
#include "serialize/traits.h"

namespace zelk_test {

using Bytes = std::vector<uint8_t>;
using Dec = tolva_lib::serialize::binary::Decoder<tolva_lib::io::MemReader>;
using Enc = tolva_lib::serialize::binary::Encoder<tolva_lib::io::MemWriter>;

inline Bytes B(std::initializer_list<int> v) {
  Bytes out;
  for (int x : v) out.push_back(static_cast<uint8_t>(x));
  return out;
}

inline Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

inline Bytes U64(uint64_t v) {
  Bytes out;
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  return out;
}

inline Bytes U32(uint32_t v) {
  Bytes out;
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  return out;
}

inline Bytes Str(const std::string& s) { return Cat({U64(s.size()), Bytes(s.begin(), s.end())}); }

template <typename T>
Bytes Encode(const T& value) {
  Bytes out;
  tolva_lib::io::MemWriter w(out);
  Enc e(w);
  EXPECT_TRUE((tolva_lib::serialize::Encodable<T>::encode(value, e).isOk()));
  return out;
}

// The decoded value, or empty on Err; `remaining` receives what was left.
template <typename T>
absl::optional<T> Decode(const Bytes& in, size_t* remaining = nullptr) {
  tolva_lib::io::MemReader r(in.data(), in.size());
  Dec d(r);
  auto res = tolva_lib::serialize::Decodable<T>::decode(d);
  if (remaining != nullptr) *remaining = r.remaining();
  if (res.isErr()) return absl::nullopt;
  return std::move(res).getOk();
}

}  // namespace zelk_test

#endif  // ZELK_ELF_TESTS_SUPPORT_WIRE_H_
