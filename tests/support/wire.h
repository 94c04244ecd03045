// Bytes on the wire written out by hand: little-endian integers and
// length-prefixed strings.
#ifndef ZELK_ELF_TESTS_SUPPORT_WIRE_H_
#define ZELK_ELF_TESTS_SUPPORT_WIRE_H_

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace zelk_test {

using Bytes = std::vector<uint8_t>;

inline Bytes B(std::initializer_list<int> v) { return Bytes(v.begin(), v.end()); }

inline void Append(Bytes& out, std::initializer_list<Bytes> parts) {
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
}

inline Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  Append(out, parts);
  return out;
}

inline Bytes Le(uint64_t v, int width) {
  Bytes out;
  for (int i = 0; i < width; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  return out;
}
inline Bytes U64(uint64_t v) { return Le(v, 8); }
inline Bytes U32(uint32_t v) { return Le(v, 4); }
inline Bytes Str(const std::string& s) { return Cat({U64(s.size()), Bytes(s.begin(), s.end())}); }

}  // namespace zelk_test

#endif  // ZELK_ELF_TESTS_SUPPORT_WIRE_H_
