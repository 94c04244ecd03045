// zelk-elf debug: the nine decoded debug values of an image; and
// zelk-elf cfg: the control-flow graph, as an edge list or Graphviz DOT.
#include <algorithm>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "absl/strings/str_join.h"
#include "elf/debug_fields.h"
#include "tools/zelk-elf/json.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

std::string counted(size_t n, const char* one, const char* many) {
  return absl::StrCat(n, " ", n == 1 ? one : many);
}

std::string rowNumber(size_t i) { return absl::StrFormat("[%2u]", i); }

// "title (.zelk.dbg.x): " and the state of a value that may be absent or
// empty; returns whether its elements should be listed.
bool heading(std::ostream& out, const std::string& title, size_t count, bool present,
             const char* one, const char* many) {
  out << title << (count != 0 ? counted(count, one, many)
                   : present  ? "present but empty"
                              : "absent")
      << "\n";
  return count != 0;
}

// One record as table cells, as its layout lays it out: addresses in hex,
// other integers in decimal, strings quoted, array members joined.
template <typename T>
std::vector<std::string> recordCells(const T& record) {
  struct Value {
    uint64_t number;
    std::string text;
  };
  std::vector<Value> fields;
  visitFields(
      [&fields](const char*, const auto& field) {
        if constexpr (std::is_integral<std::decay_t<decltype(field)>>::value) {
          fields.push_back({field, absl::StrCat(field)});
        } else {
          fields.push_back({0, quoteText(field)});
        }
      },
      record);
  std::vector<std::string> cells;
  for (const LayoutMember& member : layoutOf<T>()) {
    std::vector<absl::string_view> values;
    for (size_t k = 0; k < member.count; ++k) values.push_back(fields[member.first + k].text);
    cells.push_back(isAddressField(member.name) ? hexValue(fields[member.first].number, 8)
                                                : absl::StrJoin(values, " "));
  }
  return cells;
}

// Headers and alignment of a record's columns.
template <typename T>
std::pair<std::vector<std::string>, std::vector<bool>> recordColumns() {
  std::pair<std::vector<std::string>, std::vector<bool>> columns;
  const T sample{};
  std::vector<bool> integral;
  visitFields(
      [&integral](const char*, const auto& field) {
        integral.push_back(std::is_integral<std::decay_t<decltype(field)>>::value);
      },
      sample);
  for (const LayoutMember& member : layoutOf<T>()) {
    columns.first.push_back(headerOf(member.name));
    columns.second.push_back(!member.array && integral[member.first] &&
                             !isAddressField(member.name));
  }
  return columns;
}

std::vector<std::string> elementCells(const std::tuple<BasicBlockRange, BasicBlockRange>& edge) {
  return {rangeLabel(std::get<0>(edge)), "->", rangeLabel(std::get<1>(edge))};
}
template <typename T>
std::vector<std::string> elementCells(const T& record) {
  return recordCells(record);
}

// The elements of a list field, one numbered row each.
template <typename Element>
void listText(std::ostream& out, const std::string& title, const std::vector<Element>* list) {
  constexpr bool kEdges = !IsRecord<Element>::value;  // a CFG edge, a pair of blocks
  if (!heading(out, title, list ? list->size() : 0, list != nullptr, kEdges ? "edge" : "entry",
               kEdges ? "edges" : "entries")) {
    return;
  }
  std::vector<std::string> header = {"[Nr]"};
  std::vector<bool> right_aligned = {false};
  if constexpr (kEdges) {
    header.insert(header.end(), {"First block", "", "Second block"});
    right_aligned.resize(4, false);
  } else {
    const auto columns = recordColumns<Element>();
    header.insert(header.end(), columns.first.begin(), columns.first.end());
    right_aligned.insert(right_aligned.end(), columns.second.begin(), columns.second.end());
  }
  printTable(out, "  ", right_aligned, list->size() + 1, [&](size_t row) {
    if (row == 0) return header;
    std::vector<std::string> cells = elementCells((*list)[row - 1]);
    cells.insert(cells.begin(), rowNumber(row - 1));
    return cells;
  });
}

// A map field, in key order: lists of strings under their key, records as
// rows named by their key.
template <typename V>
void mapText(std::ostream& out, const std::string& title, const std::string& unit,
             const std::unordered_map<std::string, V>* map) {
  if (!heading(out, title, map ? map->size() : 0, map != nullptr, unit.c_str(),
               (unit + "s").c_str())) {
    return;
  }
  const auto entries = sortedEntries(*map);
  if constexpr (IsVector<V>::value) {
    for (const auto* entry : entries) {
      out << "  " << quoteText(entry->first) << ": "
          << counted(entry->second.size(), "string", "strings") << "\n";
      for (size_t i = 0; i < entry->second.size(); ++i) {
        out << "    " << rowNumber(i) << " " << quoteText(entry->second[i]) << "\n";
      }
    }
  } else {
    auto columns = recordColumns<V>();
    columns.first.insert(columns.first.begin(), "Name");
    columns.second.insert(columns.second.begin(), false);
    printTable(out, "  ", columns.second, entries.size() + 1, [&](size_t row) {
      if (row == 0) return columns.first;
      std::vector<std::string> cells = recordCells(entries[row - 1]->second);
      cells.insert(cells.begin(), quoteText(entries[row - 1]->first));
      return cells;
    });
  }
}

void writeText(const ELF& elf, std::ostream& out) {
  forEachDebugField([&](size_t, const auto& field) {
    using T = typename std::decay_t<decltype(field)>::Type;
    const absl::optional<T>& value = elf.*field.member;
    const std::string title = absl::StrCat(field.title, " (", field.section, "): ");
    if constexpr (IsListRecord<T>::value) {
      listText(out, title, value ? &elementsOf(*value) : nullptr);
    } else if constexpr (IsMap<T>::value) {
      mapText(out, title, keyNameOf(field.json_name), pointer(value));
    } else if constexpr (IsRecord<T>::value) {
      std::vector<std::string> parts;
      const T shown = value.value_or(T());
      visitFields(
          [&parts](const char* name, const auto& v) { parts.push_back(absl::StrCat(name, " ", v)); },
          shown);
      out << title << (value ? absl::StrJoin(parts, ", ") : "absent") << "\n";
    } else if constexpr (std::is_integral<T>::value) {
      out << title << (value ? absl::StrFormat("%u (0x%x)", *value, *value) : "absent") << "\n";
    } else {
      out << title
          << (!value ? std::string("absent") : value->empty() ? "present but empty" : quoteText(*value))
          << "\n";
    }
  });
}

void writeJson(const ELF& elf, std::ostream& out) {
  JsonStream json(out);
  json.member("schema", 1);
  forEachDebugField([&](size_t, const auto& field) {
    using T = typename std::decay_t<decltype(field)>::Type;
    const absl::optional<T>& value = elf.*field.member;
    if (!value) return json.member(field.json_name, nullptr);
    if constexpr (IsListRecord<T>::value) {
      json.beginArray(field.json_name);
      for (const auto& element : elementsOf(*value)) json.element(toJson(element));
      json.endArray();
    } else if constexpr (IsMap<T>::value) {
      const std::string key = keyNameOf(field.json_name);
      json.beginArray(field.json_name);
      for (const auto* entry : sortedEntries(*value)) json.element(entryJson(key.c_str(), *entry));
      json.endArray();
    } else {
      json.member(field.json_name, toJson(*value));
    }
  });
  json.end();
}

std::function<int()> declareDebug(CLI::App& app) {
  auto args = declareFileArgs(app, "--json");
  return [args] {
    ELF elf = loadImage(args->file);
    args->flag ? writeJson(elf, std::cout) : writeText(elf, std::cout);
    return kExitOk;
  };
}

// Nodes are the distinct blocks in order of first appearance (first range
// of each edge before its second); edges follow in payload order.
void writeDot(const ELF& elf, std::ostream& out) {
  out << "digraph cfg {\n";
  if (!elf.cfgInfo) {
    out << "  // no .zelk.dbg.cfg section\n}\n";
    return;
  }
  out << "  node [shape=box, fontname=\"monospace\"];\n";
  const auto& edges = elf.cfgInfo->edges;
  const auto key = [](const BasicBlockRange& range) {
    return uint64_t{range.start} << 32 | range.end;
  };
  // Each block's first mention: two words per mention, less than a map.
  std::vector<std::pair<uint64_t, size_t>> blocks;
  blocks.reserve(2 * edges.size());
  for (size_t i = 0; i < edges.size(); ++i) {
    blocks.emplace_back(key(std::get<0>(edges[i])), 2 * i);
    blocks.emplace_back(key(std::get<1>(edges[i])), 2 * i + 1);
  }
  std::sort(blocks.begin(), blocks.end());
  blocks.erase(std::unique(blocks.begin(), blocks.end(),
                           [](const auto& x, const auto& y) {
                             return x.first == y.first;
                           }),
               blocks.end());
  // Numbered in order of first mention, then sorted again for lookups.
  std::sort(blocks.begin(), blocks.end(),
            [](const auto& x, const auto& y) { return x.second < y.second; });
  for (size_t number = 0; number < blocks.size(); ++number) {
    const uint64_t block = blocks[number].first;
    blocks[number].second = number;
    out << "  b" << number << " [label=\""
        << rangeLabel({static_cast<uint32_t>(block >> 32),
                       static_cast<uint32_t>(block)})
        << "\"];\n";
  }
  std::sort(blocks.begin(), blocks.end());
  const auto number = [&](const BasicBlockRange& range) {
    return std::lower_bound(
               blocks.begin(), blocks.end(), key(range),
               [](const auto& block, uint64_t k) { return block.first < k; })
        ->second;
  };
  for (const auto& edge : edges) {
    out << "  b" << number(std::get<0>(edge)) << " -> b"
        << number(std::get<1>(edge)) << ";\n";
  }
  out << "}\n";
}

void writeEdges(const ELF& elf, std::ostream& out) {
  if (!elf.cfgInfo) {
    out << "no .zelk.dbg.cfg section\n";
    return;
  }
  const auto& edges = elf.cfgInfo->edges;
  out << counted(edges.size(), "edge", "edges") << "\n";
  for (size_t i = 0; i < edges.size(); ++i) {
    out << "  " << rowNumber(i) << " " << rangeLabel(std::get<0>(edges[i]))
        << " -> " << rangeLabel(std::get<1>(edges[i])) << "\n";
  }
}

std::function<int()> declareCfg(CLI::App& app) {
  auto args = declareFileArgs(app, "--dot");
  return [args] {
    ELF elf = loadImage(args->file);
    args->flag ? writeDot(elf, std::cout) : writeEdges(elf, std::cout);
    return kExitOk;
  };
}

}  // namespace

const Command kDebugCommand = {
    "debug", "the decoded .zelk.dbg. sections",
    "usage: zelk-elf debug FILE [--json]\n\n"
    "The nine decoded .zelk.dbg. values, \"absent\" and \"present but empty\"\n"
    "told apart, map keys sorted. 'edit --set-debug' takes the JSON back.\n\n"
    "  --json   machine-readable output (schema 1, see docs/cli.md)\n",
    declareDebug};

const Command kCfgCommand = {
    "cfg", "the control-flow graph (--dot: Graphviz)",
    "usage: zelk-elf cfg FILE [--dot]\n\n"
    "The control-flow graph, one line per edge; with --dot a Graphviz graph\n"
    "of the distinct blocks: zelk-elf cfg a.elf --dot | dot -Tsvg > cfg.svg\n",
    declareCfg};

}  // namespace cli
}  // namespace zelk_elf
