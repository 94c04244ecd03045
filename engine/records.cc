#include "engine/records.h"

#include <algorithm>
#include <cstring>

namespace zelk_elf {
namespace engine {
namespace {

// Fixed-width fields in one byte order, with the swap decided at compile
// time so that each field is one load or store.
template <bool kMsb, typename T>
T load(const uint8_t* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  const bool swap = kMsb == (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
  if constexpr (sizeof(T) == 2) return swap ? __builtin_bswap16(v) : v;
  if constexpr (sizeof(T) == 4) return swap ? __builtin_bswap32(v) : v;
  if constexpr (sizeof(T) == 8) return swap ? __builtin_bswap64(v) : v;
}

template <bool kMsb, typename T>
void store(uint8_t* p, T v) {
  const bool swap = kMsb == (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
  if constexpr (sizeof(T) == 2) v = swap ? __builtin_bswap16(v) : v;
  if constexpr (sizeof(T) == 4) v = swap ? __builtin_bswap32(v) : v;
  if constexpr (sizeof(T) == 8) v = swap ? __builtin_bswap64(v) : v;
  std::memcpy(p, &v, sizeof v);
}

// Walks a record field by field, reading each into its place.
template <bool kWide, bool kMsb>
struct FieldReader {
  const uint8_t* p;
  void half(const char*, uint16_t& v) { v = load<kMsb, uint16_t>(p); p += 2; }
  void word(const char*, uint32_t& v) { v = load<kMsb, uint32_t>(p); p += 4; }
  void addr(const char*, uint64_t& v) {
    if constexpr (kWide) {
      v = load<kMsb, uint64_t>(p);
      p += 8;
    } else {
      v = load<kMsb, uint32_t>(p);
      p += 4;
    }
  }
};

// Walks a record field by field, writing each; a 32-bit image keeps the low
// half of address-sized fields.
template <bool kWide, bool kMsb>
struct FieldWriter {
  uint8_t* p;
  void half(const char*, uint16_t v) { store<kMsb>(p, v); p += 2; }
  void word(const char*, uint32_t v) { store<kMsb>(p, v); p += 4; }
  void addr(const char*, uint64_t v) {
    if constexpr (kWide) {
      store<kMsb>(p, v);
      p += 8;
    } else {
      store<kMsb>(p, static_cast<uint32_t>(v));
      p += 4;
    }
  }
};

template <bool kWide, bool kMsb>
struct Format {
  static void decodeFile(ByteView bytes, FileHeader* h) {
    std::copy(bytes.data(), bytes.data() + 16, h->ident.begin());
    FieldReader<kWide, kMsb> r{bytes.data() + 16};
    visitFileHeader(*h, r);
  }
  static void encodeFile(const FileHeader& h, uint8_t* out) {
    std::copy(h.ident.begin(), h.ident.end(), out);
    FieldWriter<kWide, kMsb> w{out + 16};
    visitFileHeader(h, w);
  }
  static void decodeSection(ByteView bytes, SectionHeader* h) {
    FieldReader<kWide, kMsb> r{bytes.data()};
    visitSectionHeader(*h, r);
  }
  static void encodeSection(const SectionHeader& h, uint8_t* out) {
    FieldWriter<kWide, kMsb> w{out};
    visitSectionHeader(h, w);
  }
  static void decodeSegment(ByteView bytes, SegmentHeader* h) {
    FieldReader<kWide, kMsb> r{bytes.data()};
    visitSegmentHeader<kWide>(*h, r);
  }
  static void encodeSegment(const SegmentHeader& h, uint8_t* out) {
    FieldWriter<kWide, kMsb> w{out};
    visitSegmentHeader<kWide>(h, w);
  }

  static constexpr RecordFormat kFormat = {
      kWide ? 64u : 52u, kWide ? 64u : 40u, kWide ? 56u : 32u,
      decodeFile,        encodeFile,        decodeSection,
      encodeSection,     decodeSegment,     encodeSegment};
};

}  // namespace

const RecordFormat& recordFormat(uint8_t elf_class, uint8_t encoding) {
  const bool wide = elf_class == kClass64;
  const bool msb = encoding == kDataMsb;
  if (wide) return msb ? Format<true, true>::kFormat : Format<true, false>::kFormat;
  return msb ? Format<false, true>::kFormat : Format<false, false>::kFormat;
}

}  // namespace engine
}  // namespace zelk_elf
