// zelk_elf: the records of the compiler's debug information, as the
// ".zelk.dbg." sections carry them. Plain values; the library never
// interprets them.
#ifndef ZELK_ELF_DEBUG_INFO_H_
#define ZELK_ELF_DEBUG_INFO_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
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

// ---------------------------------------------------------------------------
// The one description of each record's fields: name and member, in
// declaration order, which is also their order in a payload. Codecs,
// equality, hashing and every conversion (JSON, Python, the tool's output)
// walk it; adding a field to a record is one line here.

template <typename Record, typename T>
struct Field {
  using Type = T;
  const char* name;
  T Record::*member;
};

template <typename Record, typename T>
constexpr Field<Record, T> field(const char* name, T Record::*member) {
  return {name, member};
}

// Specialised for each record: kName, the record's name, and kList, a tuple
// of its Fields.
template <typename Record>
struct Fields;

template <>
struct Fields<DebugInfoID> {
  static constexpr const char* kName = "DebugInfoID";
  static constexpr auto kList =
      std::make_tuple(field("kind", &DebugInfoID::kind), field("id0", &DebugInfoID::id0),
                      field("id1", &DebugInfoID::id1));
};
template <>
struct Fields<SpillLoc> {
  static constexpr const char* kName = "SpillLoc";
  static constexpr auto kList =
      std::make_tuple(field("addr", &SpillLoc::addr), field("index", &SpillLoc::index),
                      field("kind", &SpillLoc::kind), field("name", &SpillLoc::name));
};
template <>
struct Fields<SpillInfo> {
  static constexpr const char* kName = "SpillInfo";
  static constexpr auto kList = std::make_tuple(field("locs", &SpillInfo::locs));
};
template <>
struct Fields<SWPLoc> {
  static constexpr const char* kName = "SWPLoc";
  static constexpr auto kList = std::make_tuple(field("addr", &SWPLoc::addr));
};
template <>
struct Fields<SWPInfo> {
  static constexpr const char* kName = "SWPInfo";
  static constexpr auto kList = std::make_tuple(field("locs", &SWPInfo::locs));
};
template <>
struct Fields<BasicBlockRange> {
  static constexpr const char* kName = "BasicBlockRange";
  static constexpr auto kList = std::make_tuple(field("start", &BasicBlockRange::start),
                                                field("end", &BasicBlockRange::end));
};
template <>
struct Fields<ControlFlowGraph> {
  static constexpr const char* kName = "ControlFlowGraph";
  static constexpr auto kList = std::make_tuple(field("edges", &ControlFlowGraph::edges));
};
template <>
struct Fields<LatencyInfoLoc> {
  static constexpr const char* kName = "LatencyInfoLoc";
  static constexpr auto kList = std::make_tuple(
      field("addr", &LatencyInfoLoc::addr), field("kind", &LatencyInfoLoc::kind),
      field("value0", &LatencyInfoLoc::value0), field("value1", &LatencyInfoLoc::value1),
      field("value2", &LatencyInfoLoc::value2), field("value3", &LatencyInfoLoc::value3));
};
template <>
struct Fields<LatencyInfo> {
  static constexpr const char* kName = "LatencyInfo";
  static constexpr auto kList = std::make_tuple(field("locs", &LatencyInfo::locs));
};
template <>
struct Fields<SymbolAddr> {
  static constexpr const char* kName = "SymbolAddr";
  static constexpr auto kList =
      std::make_tuple(field("kind", &SymbolAddr::kind), field("addr", &SymbolAddr::addr));
};

// Whether T is a record described above.
template <typename T, typename = void>
struct IsRecord : std::false_type {};
template <typename T>
struct IsRecord<T, std::void_t<decltype(Fields<T>::kList)>> : std::true_type {};

template <typename T>
struct IsVector : std::false_type {};
template <typename T>
struct IsVector<std::vector<T>> : std::true_type {};

// A record that is just a list (its one field is a std::vector): spill, SWP
// and latency locations, CFG edges. In a payload its elements run to the end.
template <typename T, bool = IsRecord<T>::value>
struct IsListRecord : std::false_type {};
template <typename Record>
struct IsListRecord<Record, true>
    : std::integral_constant<
          bool, std::tuple_size<decltype(Fields<Record>::kList)>::value == 1 &&
                    IsVector<typename std::decay_t<decltype(std::get<0>(
                        Fields<Record>::kList))>::Type>::value> {};

// The elements of a list record.
template <typename Record, typename = std::enable_if_t<IsListRecord<Record>::value>>
const auto& elementsOf(const Record& record) {
  return record.*(std::get<0>(Fields<Record>::kList).member);
}

// Calls f(name, record.field, more.field...) for each field, in order: one
// record to read or fill, or several to compare.
template <typename F, typename Record, typename... More>
void visitFields(F&& f, Record& record, More&... more) {
  const auto one = [&](const auto& field) {
    f(field.name, record.*(field.member), more.*(field.member)...);
  };
  std::apply([&one](const auto&... fields) { (one(fields), ...); },
             Fields<std::remove_const_t<Record>>::kList);
}

// Field-wise equality, so records can key hash containers and be compared in
// tests and tools.
template <typename Record, typename = std::enable_if_t<IsRecord<Record>::value>>
bool operator==(const Record& a, const Record& b) {
  bool equal = true;
  visitFields([&equal](const char*, const auto& x, const auto& y) { equal = equal && x == y; },
              a, b);
  return equal;
}
template <typename Record, typename = std::enable_if_t<IsRecord<Record>::value>>
bool operator!=(const Record& a, const Record& b) {
  return !(a == b);
}

}  // namespace zelk_elf

#endif  // ZELK_ELF_DEBUG_INFO_H_
