// zelk_elf: the records of the compiler's debug information, as the
// ".zelk.dbg." sections carry them. Plain values; the library never
// interprets them.
#ifndef ZELK_ELF_DEBUG_INFO_H_
#define ZELK_ELF_DEBUG_INFO_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

// The library's exported symbols; everything else is hidden.
#if defined(ZELK_ELF_BUILDING)
#define ZELK_ELF_API __attribute__((visibility("default")))
#else
#define ZELK_ELF_API
#endif

namespace zelk_elf {

struct ZELK_ELF_API DebugInfoID {
  uint8_t kind = 0;  // 0 or 1 are defined; other values are carried as is
  uint16_t id0 = 0;
  uint16_t id1 = 0;

  // absl::Hash of (kind, id0, id1). Valid within one process only.
  size_t hash() const;
};

struct SpillLoc {
  uint32_t addr = 0;
  uint8_t index = 0;
  uint8_t kind = 0;  // 0 to 5 are defined
  std::string name;
};

struct SpillInfo {
  std::vector<SpillLoc> locs;
};

struct SWPLoc {
  uint32_t addr = 0;
};

struct SWPInfo {
  std::vector<SWPLoc> locs;
};

struct ZELK_ELF_API BasicBlockRange {
  uint32_t start = 0;
  uint32_t end = 0;

  // absl::Hash of (start, end). Valid within one process only.
  size_t hash() const;
};

struct ControlFlowGraph {
  std::vector<std::tuple<BasicBlockRange, BasicBlockRange>> edges;
};

struct LatencyInfoLoc {
  uint32_t addr = 0;
  uint8_t kind = 0;
  uint8_t value0 = 0;
  uint8_t value1 = 0;
  uint8_t value2 = 0;
  uint8_t value3 = 0;
};

struct LatencyInfo {
  std::vector<LatencyInfoLoc> locs;
};

struct SymbolAddr {
  uint8_t kind = 0;
  uint32_t addr = 0;
};

// Source strings keyed by source name, and symbol addresses keyed by name.
using SourceMap = std::unordered_map<std::string, std::vector<std::string>>;
using SymbolMap = std::unordered_map<std::string, SymbolAddr>;

// Field-wise equality, so records can key hash containers and be compared in
// tests and tools.
inline bool operator==(const DebugInfoID& a, const DebugInfoID& b) {
  return a.kind == b.kind && a.id0 == b.id0 && a.id1 == b.id1;
}
inline bool operator==(const SpillLoc& a, const SpillLoc& b) {
  return a.addr == b.addr && a.index == b.index && a.kind == b.kind &&
         a.name == b.name;
}
inline bool operator==(const SpillInfo& a, const SpillInfo& b) {
  return a.locs == b.locs;
}
inline bool operator==(const SWPLoc& a, const SWPLoc& b) {
  return a.addr == b.addr;
}
inline bool operator==(const SWPInfo& a, const SWPInfo& b) {
  return a.locs == b.locs;
}
inline bool operator==(const BasicBlockRange& a, const BasicBlockRange& b) {
  return a.start == b.start && a.end == b.end;
}
inline bool operator==(const ControlFlowGraph& a, const ControlFlowGraph& b) {
  return a.edges == b.edges;
}
inline bool operator==(const LatencyInfoLoc& a, const LatencyInfoLoc& b) {
  return a.addr == b.addr && a.kind == b.kind && a.value0 == b.value0 &&
         a.value1 == b.value1 && a.value2 == b.value2 && a.value3 == b.value3;
}
inline bool operator==(const LatencyInfo& a, const LatencyInfo& b) {
  return a.locs == b.locs;
}
inline bool operator==(const SymbolAddr& a, const SymbolAddr& b) {
  return a.kind == b.kind && a.addr == b.addr;
}
inline bool operator!=(const DebugInfoID& a, const DebugInfoID& b) { return !(a == b); }
inline bool operator!=(const SpillLoc& a, const SpillLoc& b) { return !(a == b); }
inline bool operator!=(const SpillInfo& a, const SpillInfo& b) { return !(a == b); }
inline bool operator!=(const SWPLoc& a, const SWPLoc& b) { return !(a == b); }
inline bool operator!=(const SWPInfo& a, const SWPInfo& b) { return !(a == b); }
inline bool operator!=(const BasicBlockRange& a, const BasicBlockRange& b) { return !(a == b); }
inline bool operator!=(const ControlFlowGraph& a, const ControlFlowGraph& b) { return !(a == b); }
inline bool operator!=(const LatencyInfoLoc& a, const LatencyInfoLoc& b) { return !(a == b); }
inline bool operator!=(const LatencyInfo& a, const LatencyInfo& b) { return !(a == b); }
inline bool operator!=(const SymbolAddr& a, const SymbolAddr& b) { return !(a == b); }

}  // namespace zelk_elf

#endif  // ZELK_ELF_DEBUG_INFO_H_
