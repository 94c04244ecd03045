// How zelk-elf shows a debug record, derived from the record's field list
// (zelk_elf::Fields): the member names of its JSON object, the columns of
// its text table. One set of rules serves every record:
// - a field's JSON name is its name written out ("addr" is "address");
// - more than two fields named base0, base1, ... form one array member
//   "bases" (a latency location's four values; id0 and id1 of a debug id
//   stay two members);
// - a column shows an address field (addr, start, end) in hex, another
//   integer right-aligned, a string quoted, an array member joined by
//   spaces; its header is the member name, capitalised.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_RECORD_LAYOUT_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_RECORD_LAYOUT_H_

#include <cstddef>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "absl/strings/ascii.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/string_view.h"
#include "zelk_elf/debug_info.h"

namespace zelk_elf {
namespace cli {

// The source and symbol maps.
template <typename T>
struct IsMap : std::false_type {};
template <typename V>
struct IsMap<std::unordered_map<std::string, V>> : std::true_type {};

// One member of a record's JSON object: fields [first, first + count).
struct LayoutMember {
  std::string name;
  size_t first = 0;
  size_t count = 1;
  bool array = false;
};

inline std::string writtenOut(absl::string_view field) {
  return field == "addr" ? "address" : std::string(field);
}

inline bool isAddressField(absl::string_view member) {
  return member == "address" || member == "start" || member == "end";
}

// "base" for a numbered field "base2", empty for any other.
inline absl::string_view numberedBase(absl::string_view field) {
  const size_t end = field.find_last_not_of("0123456789") + 1;
  return end == field.size() ? absl::string_view() : field.substr(0, end);
}

template <typename T>
std::vector<LayoutMember> buildLayout() {
  std::vector<std::string> fields;
  const T sample{};
  visitFields([&](const char* name, const auto&) { fields.emplace_back(name); }, sample);
  std::vector<LayoutMember> members;
  for (size_t i = 0; i < fields.size();) {
    const absl::string_view base = numberedBase(fields[i]);
    size_t run = 1;
    while (!base.empty() && i + run < fields.size() && numberedBase(fields[i + run]) == base) {
      ++run;
    }
    if (run > 2) {
      members.push_back({absl::StrCat(writtenOut(base), "s"), i, run, true});
      i += run;
    } else {
      members.push_back({writtenOut(fields[i]), i, 1, false});
      ++i;
    }
  }
  return members;
}

// The members of record type T, in field order.
template <typename T>
const std::vector<LayoutMember>& layoutOf() {
  static const std::vector<LayoutMember> kLayout = buildLayout<T>();
  return kLayout;
}

// "Address": a member name as a column header.
inline std::string headerOf(absl::string_view member) {
  std::string header(member);
  if (!header.empty()) header[0] = absl::ascii_toupper(header[0]);
  return header;
}

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_RECORD_LAYOUT_H_
