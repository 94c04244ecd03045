// The nine ".zelk.dbg." sections and the fields of ELF that hold their
// decoded values: one table, walked by load and save, by moving an ELF, and
// by every conversion of the fields (the C queries, zelk-elf, Python).
// Adding a tenth field is one row here.
#ifndef ZELK_ELF_ELF_DEBUG_FIELDS_H_
#define ZELK_ELF_ELF_DEBUG_FIELDS_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "absl/status/status.h"
#include "absl/strings/string_view.h"
#include "absl/types/optional.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

template <typename T>
struct DebugField {
  using Type = T;
  const char* section;      // ".zelk.dbg.swp"
  const char* python_name;  // the zelk_elf.ELF property: "swp_info"
  const char* json_name;    // the member of zelk-elf's JSON document: "swp_list"
  const char* title;        // what zelk-elf's text output calls it: "SWP list"
  absl::optional<T> ELF::*member;
};

// In section order: the order of loading, saving and every listing.
inline constexpr auto kDebugFields = std::make_tuple(
    DebugField<DebugInfoID>{".zelk.dbg.id", "dbg_id", "debug_id", "debug id", &ELF::dbgID},
    DebugField<SpillInfo>{".zelk.dbg.spill", "spill_info", "spill_list", "spill list",
                          &ELF::spillInfo},
    DebugField<SWPInfo>{".zelk.dbg.swp", "swp_info", "swp_list", "SWP list", &ELF::swpInfo},
    DebugField<ControlFlowGraph>{".zelk.dbg.cfg", "cfg_info", "cfg_edges", "CFG edges",
                                 &ELF::cfgInfo},
    DebugField<SourceMap>{".zelk.dbg.src", "src_info", "source_map", "source map",
                          &ELF::srcInfo},
    DebugField<SymbolMap>{".zelk.dbg.sym", "sym_info", "symbol_map", "symbol map",
                          &ELF::symInfo},
    DebugField<uint32_t>{".zelk.dbg.pmsize", "pm_size", "pm_size", "PM size", &ELF::pmSize},
    DebugField<std::string>{".zelk.dbg.verifyinfo", "verify_info", "verify_info",
                            "verify info", &ELF::verifyInfo},
    DebugField<LatencyInfo>{".zelk.dbg.latency", "latency_info", "latency_list",
                            "latency list", &ELF::latencyInfo});

inline constexpr size_t kDebugFieldCount = std::tuple_size<decltype(kDebugFields)>::value;

// Calls f(index, field) for each row, in order.
template <typename F>
void forEachDebugField(F&& f) {
  std::apply(
      [&f](const auto&... fields) {
        size_t index = 0;
        (f(index++, fields), ...);
      },
      kDebugFields);
}

// The section names, in table order.
inline constexpr auto kDebugSectionNames = std::apply(
    [](const auto&... fields) {
      return std::array<absl::string_view, kDebugFieldCount>{fields.section...};
    },
    kDebugFields);

// The shapes a field's value takes beyond records and vectors: the source
// and symbol maps, and a CFG edge.
template <typename T>
struct IsMap : std::false_type {};
template <typename V>
struct IsMap<std::unordered_map<std::string, V>> : std::true_type {};
template <typename T>
struct IsTuple : std::false_type {};
template <typename... Ts>
struct IsTuple<std::tuple<Ts...>> : std::true_type {};

// A map's entries sorted by key: the maps have no order of their own, and
// what the tools and scripts show should not change from run to run.
template <typename Map>
std::vector<const typename Map::value_type*> sortedEntries(const Map& map) {
  std::vector<const typename Map::value_type*> entries;
  entries.reserve(map.size());
  for (const auto& entry : map) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->first < b->first; });
  return entries;
}

// A field's name as the tools and messages spell it: "addr" is "address".
inline std::string writtenOut(absl::string_view field) {
  return field == "addr" ? "address" : std::string(field);
}

// Decodes the first section of each name that the image holds into its
// field; the fields must all be empty. Stops at the first payload refused,
// naming it: ".zelk.dbg.swp: payload of 6 bytes ends inside an element at
// offset 4". Allocation failures propagate.
absl::Status readDebugFields(ELF& elf);

// Encodes every engaged field into its section as a raw section write
// (created when missing, SHT_PROGBITS, alignment 1). Fails when a payload
// could not be stored. Allocation failures propagate.
absl::Status writeDebugFields(ELF& elf);

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_DEBUG_FIELDS_H_
