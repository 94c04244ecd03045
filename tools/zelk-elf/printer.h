// What the reading commands show, described once and laid out two ways (as
// LLVM's ScopedPrinter and JSONScopedPrinter are): a command emits each
// value as cells that carry both its JSON member and its text, and a text or
// a JSON printer lays them out.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_PRINTER_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_PRINTER_H_

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "absl/strings/ascii.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "elf/debug_fields.h"
#include "tools/zelk-elf/json.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {

// One value: `value` as member `key` of the JSON object (nullptr: text
// only; "": the value is the whole element), and `text` in the text row
// unless not `in_text`.
struct Cell {
  const char* key;
  Json value;
  std::string text;
  bool in_text = true;
};
using Cells = std::vector<Cell>;
inline Cell textOnly(std::string text) { return {nullptr, Json(), std::move(text)}; }
inline Cell jsonOnly(const char* key, Json value) { return {key, std::move(value), "", false}; }

// The JSON object (or bare value) of a row.
Json jsonOf(Cells cells);

struct Column {
  std::string header;
  bool right_aligned = false;
};

// Member `key`: `count` rows as an array, or null unless `present`. In
// text, the heading line, then the rows under the columns' headers (none
// when all are empty, and none for no rows unless `headed_when_empty`).
struct Table {
  const char* key;
  std::string heading;
  std::vector<Column> columns;
  size_t count;
  bool present = true;
  bool headed_when_empty = false;
};

class Printer {
 public:
  virtual ~Printer() = default;
  // Text only: a heading or a note, one line.
  virtual void line(const std::string& text) = 0;
  // The cells as members; in text, `label` and the cells on one line.
  virtual void value(const std::string& label, const Cells& cells) = 0;
  // The rows of a table are `row(i)`, called to measure and again to print,
  // so no table is ever held whole.
  virtual void table(const Table& table, const std::function<Cells(size_t)>& row) = 0;
  // Ends the document; call once, last.
  virtual void end() = 0;
  // Whether cells go out as JSON, for the rare cell too costly to make in
  // both forms (a segment's thousands of section names).
  virtual bool json() const = 0;
};

// To `out`; a JSON document starts with "schema": 1.
std::unique_ptr<Printer> makePrinter(bool json, std::ostream& out);

// How a debug record is laid out, derived from its field list: the members
// of its JSON object and the columns of its text table.
// - a field's member is its name written out ("addr" is "address");
// - more than two fields named base0, base1, ... form one array member
//   "bases" (a latency location's four values; id0 and id1 stay two);
// - a column shows an address field (addr, start, end) in hex, another
//   integer right-aligned, a string quoted, an array member joined by
//   spaces; its header is the member name, capitalised.
struct LayoutMember {
  std::string name;
  size_t first = 0;  // fields [first, first + count)
  size_t count = 1;
  bool array = false;
};

inline bool isAddressField(absl::string_view member) {
  return member == "address" || member == "start" || member == "end";
}

// The members of record type T, in field order.
template <typename T>
const std::vector<LayoutMember>& layoutOf() {
  static const std::vector<LayoutMember> kLayout = [] {
    std::vector<absl::string_view> fields;
    const T sample{};
    visitFields([&](const char* name, const auto&) { fields.emplace_back(name); }, sample);
    // "base" for a numbered field "base2", empty for any other.
    const auto base = [&fields](size_t i) {
      const absl::string_view field = fields[i];
      const size_t end = field.find_last_not_of("0123456789") + 1;
      return end == field.size() ? absl::string_view() : field.substr(0, end);
    };
    std::vector<LayoutMember> members;
    for (size_t i = 0, run; i < fields.size(); i += run) {
      run = 1;
      while (!base(i).empty() && i + run < fields.size() && base(i + run) == base(i)) ++run;
      if (run > 2) {
        members.push_back({absl::StrCat(writtenOut(base(i)), "s"), i, run, true});
      } else {
        members.push_back({writtenOut(fields[i]), i, 1, false});
        run = 1;
      }
    }
    return members;
  }();
  return kLayout;
}

// A record's cells, as its layout lays it out: addresses in hex, other
// integers in decimal, strings quoted, array members joined by spaces; and
// the columns they go under.
template <typename T, std::enable_if_t<IsRecord<T>::value, int> = 0>
Cells cellsOf(const T& record) {
  std::vector<Cell> fields;
  visitFields(
      [&fields](const char*, const auto& field) {
        if constexpr (std::is_integral<std::decay_t<decltype(field)>>::value) {
          fields.push_back({"", field, absl::StrCat(field)});
        } else {
          fields.push_back({"", byteString(field), quoteText(field)});
        }
      },
      record);
  Cells cells;
  for (const LayoutMember& member : layoutOf<T>()) {
    const Cell& first = fields[member.first];
    Cell cell{member.name.c_str(), first.value, first.text};
    if (member.array) {
      cell.value = Json::array();
      std::vector<absl::string_view> texts;
      for (size_t k = member.first; k < member.first + member.count; ++k) {
        cell.value.push_back(fields[k].value);
        texts.push_back(fields[k].text);
      }
      cell.text = absl::StrJoin(texts, " ");
    } else if (isAddressField(member.name)) {
      cell.text = hexValue(first.value.get<uint64_t>(), 8);
    }
    cells.push_back(std::move(cell));
  }
  return cells;
}
// A CFG edge: two block ranges.
Cells cellsOf(const std::tuple<BasicBlockRange, BasicBlockRange>& edge);

template <typename T>
std::vector<Column> columnsOf() {
  if constexpr (IsRecord<T>::value) {
    std::vector<Column> columns;
    const Cells sample = cellsOf(T{});
    for (const Cell& cell : sample) {
      std::string header = cell.key;
      header[0] = absl::ascii_toupper(header[0]);
      columns.push_back({header, cell.value.is_number() && !isAddressField(cell.key)});
    }
    return columns;
  } else {
    return {{"First block"}, {""}, {"Second block"}};
  }
}

// A record or CFG edge as `debug --json` shows it.
template <typename T, std::enable_if_t<IsRecord<T>::value, int> = 0>
Json toJson(const T& record) {
  return jsonOf(cellsOf(record));
}
inline Json toJson(const std::tuple<BasicBlockRange, BasicBlockRange>& edge) {
  return jsonOf(cellsOf(edge));
}

// A map entry as cells: the key under `key_name`, then the value's members,
// or a list of strings as "strings".
Cells entryCells(const char* key_name, const SourceMap::value_type& entry);
Cells entryCells(const char* key_name, const SymbolMap::value_type& entry);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_PRINTER_H_
