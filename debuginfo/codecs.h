// Codecs of the debug-information records: the payload layouts of the
// ".zelk.dbg." sections. Every record is its fields in declaration order;
// the element lists run to the end of the payload.
#ifndef ZELK_ELF_DEBUGINFO_CODECS_H_
#define ZELK_ELF_DEBUGINFO_CODECS_H_

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <utility>

#include "absl/types/variant.h"
#include "serialize/containers.h"
#include "serialize/traits.h"
#include "zelk_elf/debug_info.h"

namespace tolva_lib {
namespace serialize {

template <>
struct MinWireSize<zelk_elf::DebugInfoID> {
  static constexpr size_t value = 5;
};
template <>
struct MinWireSize<zelk_elf::SpillLoc> {
  static constexpr size_t value = 14;
};
template <>
struct MinWireSize<zelk_elf::SWPLoc> {
  static constexpr size_t value = 4;
};
template <>
struct MinWireSize<zelk_elf::BasicBlockRange> {
  static constexpr size_t value = 8;
};
template <>
struct MinWireSize<std::tuple<zelk_elf::BasicBlockRange, zelk_elf::BasicBlockRange>> {
  static constexpr size_t value = 16;
};
template <>
struct MinWireSize<zelk_elf::LatencyInfoLoc> {
  static constexpr size_t value = 9;
};
template <>
struct MinWireSize<zelk_elf::SymbolAddr> {
  static constexpr size_t value = 5;
};

// Reads one field into `out`; false on failure. Keeps the record decoders
// a flat sequence of field reads.
#define ZELK_READ_FIELD(out, expr)        \
  do {                                    \
    auto r_ = (expr);                     \
    if (r_.isErr()) return typename D::ErrTy{}; \
    (out) = std::move(r_).getOk();        \
  } while (0)

// The spill, SWP and latency records are a list of locations running to
// the end of the payload; one codec serves all three.
template <typename Record>
struct LocsToEnd {
  using Loc = typename decltype(Record::locs)::value_type;

  template <typename D>
  static DecodeResult<Record, D> decode(D& d) {
    Record v;
    ZELK_READ_FIELD(v.locs, decodeToEnd<Loc>(d));
    return v;
  }
  template <typename E>
  static EncodeResult<E> encode(const Record& v, E& e) {
    putEach(v.locs, e);
    return absl::monostate{};
  }
};

// kind u8, id0 u16, id1 u16: 5 bytes.
template <>
struct Decodable<zelk_elf::DebugInfoID> {
  template <typename D>
  static DecodeResult<zelk_elf::DebugInfoID, D> decode(D& d) {
    zelk_elf::DebugInfoID v;
    ZELK_READ_FIELD(v.kind, d.readU8());
    ZELK_READ_FIELD(v.id0, d.readU16());
    ZELK_READ_FIELD(v.id1, d.readU16());
    return v;
  }
};
template <>
struct Encodable<zelk_elf::DebugInfoID> {
  template <typename E>
  static EncodeResult<E> encode(const zelk_elf::DebugInfoID& v, E& e) {
    e.writeU8(v.kind);
    e.writeU16(v.id0);
    e.writeU16(v.id1);
    return absl::monostate{};
  }
};

// addr u32, index u8, kind u8, name str: 14 bytes plus the name.
template <>
struct Decodable<zelk_elf::SpillLoc> {
  template <typename D>
  static DecodeResult<zelk_elf::SpillLoc, D> decode(D& d) {
    zelk_elf::SpillLoc v;
    ZELK_READ_FIELD(v.addr, d.readU32());
    ZELK_READ_FIELD(v.index, d.readU8());
    ZELK_READ_FIELD(v.kind, d.readU8());
    ZELK_READ_FIELD(v.name, d.readStr());
    return v;
  }
};
template <>
struct Encodable<zelk_elf::SpillLoc> {
  template <typename E>
  static EncodeResult<E> encode(const zelk_elf::SpillLoc& v, E& e) {
    e.writeU32(v.addr);
    e.writeU8(v.index);
    e.writeU8(v.kind);
    put(v.name, e);
    return absl::monostate{};
  }
};

template <>
struct Decodable<zelk_elf::SpillInfo> : LocsToEnd<zelk_elf::SpillInfo> {};
template <>
struct Encodable<zelk_elf::SpillInfo> : LocsToEnd<zelk_elf::SpillInfo> {};

// addr u32.
template <>
struct Decodable<zelk_elf::SWPLoc> {
  template <typename D>
  static DecodeResult<zelk_elf::SWPLoc, D> decode(D& d) {
    zelk_elf::SWPLoc v;
    ZELK_READ_FIELD(v.addr, d.readU32());
    return v;
  }
};
template <>
struct Encodable<zelk_elf::SWPLoc> {
  template <typename E>
  static EncodeResult<E> encode(const zelk_elf::SWPLoc& v, E& e) {
    e.writeU32(v.addr);
    return absl::monostate{};
  }
};

template <>
struct Decodable<zelk_elf::SWPInfo> : LocsToEnd<zelk_elf::SWPInfo> {};
template <>
struct Encodable<zelk_elf::SWPInfo> : LocsToEnd<zelk_elf::SWPInfo> {};

// start u32, end u32.
template <>
struct Decodable<zelk_elf::BasicBlockRange> {
  template <typename D>
  static DecodeResult<zelk_elf::BasicBlockRange, D> decode(D& d) {
    zelk_elf::BasicBlockRange v;
    ZELK_READ_FIELD(v.start, d.readU32());
    ZELK_READ_FIELD(v.end, d.readU32());
    return v;
  }
};
template <>
struct Encodable<zelk_elf::BasicBlockRange> {
  template <typename E>
  static EncodeResult<E> encode(const zelk_elf::BasicBlockRange& v, E& e) {
    e.writeU32(v.start);
    e.writeU32(v.end);
    return absl::monostate{};
  }
};

// Each edge is its first range, then its second: 16 bytes.
template <>
struct Decodable<zelk_elf::ControlFlowGraph> {
  using Edge = std::tuple<zelk_elf::BasicBlockRange, zelk_elf::BasicBlockRange>;

  template <typename D>
  static DecodeResult<Edge, D> decodeEdge(D& d) {
    Edge edge;
    ZELK_READ_FIELD(std::get<0>(edge), Decodable<zelk_elf::BasicBlockRange>::decode(d));
    ZELK_READ_FIELD(std::get<1>(edge), Decodable<zelk_elf::BasicBlockRange>::decode(d));
    return edge;
  }

  template <typename D>
  static DecodeResult<zelk_elf::ControlFlowGraph, D> decode(D& d) {
    zelk_elf::ControlFlowGraph v;
    ZELK_READ_FIELD(v.edges,
                    decodeToEnd<Edge>(d, [](D& dd) { return decodeEdge(dd); }));
    return v;
  }
};
template <>
struct Encodable<zelk_elf::ControlFlowGraph> {
  template <typename E>
  static EncodeResult<E> encode(const zelk_elf::ControlFlowGraph& v, E& e) {
    for (const auto& edge : v.edges) {
      put(std::get<0>(edge), e);
      put(std::get<1>(edge), e);
    }
    return absl::monostate{};
  }
};

// addr u32, then kind and value0..value3 as one byte each: 9 bytes.
template <>
struct Decodable<zelk_elf::LatencyInfoLoc> {
  template <typename D>
  static DecodeResult<zelk_elf::LatencyInfoLoc, D> decode(D& d) {
    zelk_elf::LatencyInfoLoc v;
    ZELK_READ_FIELD(v.addr, d.readU32());
    ZELK_READ_FIELD(v.kind, d.readU8());
    ZELK_READ_FIELD(v.value0, d.readU8());
    ZELK_READ_FIELD(v.value1, d.readU8());
    ZELK_READ_FIELD(v.value2, d.readU8());
    ZELK_READ_FIELD(v.value3, d.readU8());
    return v;
  }
};
template <>
struct Encodable<zelk_elf::LatencyInfoLoc> {
  template <typename E>
  static EncodeResult<E> encode(const zelk_elf::LatencyInfoLoc& v, E& e) {
    e.writeU32(v.addr);
    e.writeU8(v.kind);
    e.writeU8(v.value0);
    e.writeU8(v.value1);
    e.writeU8(v.value2);
    e.writeU8(v.value3);
    return absl::monostate{};
  }
};

template <>
struct Decodable<zelk_elf::LatencyInfo> : LocsToEnd<zelk_elf::LatencyInfo> {};
template <>
struct Encodable<zelk_elf::LatencyInfo> : LocsToEnd<zelk_elf::LatencyInfo> {};

// kind u8, addr u32: the value of one symbol-map entry.
template <>
struct Decodable<zelk_elf::SymbolAddr> {
  template <typename D>
  static DecodeResult<zelk_elf::SymbolAddr, D> decode(D& d) {
    zelk_elf::SymbolAddr v;
    ZELK_READ_FIELD(v.kind, d.readU8());
    ZELK_READ_FIELD(v.addr, d.readU32());
    return v;
  }
};
template <>
struct Encodable<zelk_elf::SymbolAddr> {
  template <typename E>
  static EncodeResult<E> encode(const zelk_elf::SymbolAddr& v, E& e) {
    e.writeU8(v.kind);
    e.writeU32(v.addr);
    return absl::monostate{};
  }
};

#undef ZELK_READ_FIELD

}  // namespace serialize
}  // namespace tolva_lib

#endif  // ZELK_ELF_DEBUGINFO_CODECS_H_
