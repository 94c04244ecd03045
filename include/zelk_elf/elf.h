// zelk_elf: read, edit and write ELF images of the zelk processor, including
// the compiler's debug information in the ".zelk.dbg." sections.
#ifndef ZELK_ELF_ELF_H_
#define ZELK_ELF_ELF_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "absl/strings/string_view.h"
#include "absl/types/optional.h"
#include "absl/types/span.h"
#include "zelk_elf/fixed_vector.h"

#if defined(ZELK_ELF_BUILDING)
#define ZELK_ELF_API __attribute__((visibility("default")))
#else
#define ZELK_ELF_API
#endif

namespace zelk_elf {

// ---------------------------------------------------------------------------
// Debug-information records. Plain values; the library never interprets them.

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

// ---------------------------------------------------------------------------
// One ELF image in memory with its decoded debug information.
//
// Move-only. Moving never copies the image: `commentInfo`, `text` and section
// spans stay valid across moves. A moved-from object may only be destroyed or
// assigned to.
class ZELK_ELF_API ELF {
 public:
  using Image = tolva_lib::FixedVector<uint8_t, tolva_lib::mem::SystemAllocator>;

  // A new, empty 32-bit little-endian image holding the null section and
  // ".shstrtab". Throws std::bad_alloc when memory runs out.
  ELF();
  ELF(ELF&& other) noexcept;
  ELF& operator=(ELF&& other) noexcept;
  ELF(const ELF&) = delete;
  ELF& operator=(const ELF&) = delete;
  ~ELF();

  // Parses `data` (copied; not referenced afterwards). Empty on any failure:
  // not ELF, a malformed image, a debug section that fails to decode, or
  // memory exhaustion. Never throws.
  static absl::optional<ELF> load(absl::Span<const uint8_t> data);

  // Writes every engaged debug field into its section, lays the image out and
  // returns its bytes. Empty on failure: a section that would have to be
  // placed below its segment's start or over another one, an image larger
  // than 4 GiB - 1 bytes (the most a 32-bit image can address), or memory
  // exhaustion. Never throws.
  absl::optional<Image> save();

  // Raw sections, found by exact name (the first of that name in table order).
  bool hasSection(const std::string& name) const;
  // The bytes the section holds (never more than the input held); empty span
  // when there is no such section.
  absl::Span<const uint8_t> getSection(const std::string& name) const;
  // The recorded size (sh_size); 0 when there is no such section.
  size_t getSectionSize(const std::string& name) const;
  // Creates the section when missing; makes it SHT_PROGBITS with alignment 1.
  void setSection(const std::string& name, absl::Span<const uint8_t> data);
  std::vector<std::string> getSectionNames() const;

  // Installs `code` as ".text" (alloc + exec) and makes sure a loadable
  // segment carries it, except in relocatable images. Never throws.
  void setText(absl::Span<const uint8_t> code, unsigned int align);
  // Low 32 bits of the address of ".text"; 0 when there is none.
  uint32_t getTextAddr() const;
  // Rewrites ".comment": each non-empty line followed by a NUL. An empty list
  // changes nothing. Never throws.
  void setCommentInfo(const std::vector<absl::string_view>& lines);

  uint16_t getMachine() const;
  void setMachine(uint16_t machine);
  uint16_t getType() const;
  void setType(uint16_t type);
  uint64_t getEntry() const;
  void setEntry(uint64_t entry);

  void setVerifyInfo(std::string info) { verifyInfo = std::move(info); }

  struct Impl;

  // The image. Null only in a moved-from object.
  std::unique_ptr<Impl> impl;

  // Decoded debug information, in the order of the ".zelk.dbg." sections.
  // Empty means absent; an engaged empty value is present but empty.
  absl::optional<DebugInfoID> dbgID;
  absl::optional<SpillInfo> spillInfo;
  absl::optional<SWPInfo> swpInfo;
  absl::optional<ControlFlowGraph> cfgInfo;
  absl::optional<SourceMap> srcInfo;
  absl::optional<SymbolMap> symInfo;
  absl::optional<uint32_t> pmSize;
  absl::optional<std::string> verifyInfo;
  absl::optional<LatencyInfo> latencyInfo;

  // Views into the image's ".comment" lines and ".text" bytes.
  absl::optional<std::vector<absl::string_view>> commentInfo;
  absl::optional<absl::Span<const uint8_t>> text;
};

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_H_
