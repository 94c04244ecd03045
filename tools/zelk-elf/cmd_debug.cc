// zelk-elf debug: the nine decoded debug values of an image; and
// zelk-elf cfg: the control-flow graph, as an edge list or Graphviz DOT.
#include <algorithm>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "absl/strings/str_join.h"
#include "elf/debug_fields.h"
#include "tools/zelk-elf/printer.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

// "absent", "present but empty", or the count of elements.
std::string stateOf(size_t count, bool present, const char* one, const char* many) {
  return count != 0 ? counted(count, one, many) : present ? "present but empty" : "absent";
}

// The nine values in the table's order: lists and maps as tables of their
// elements (map entries sorted by key), the others on one line each.
void writeDebug(const ELF& elf, Printer& out) {
  forEachDebugField([&](size_t, const auto& field) {
    using T = typename std::decay_t<decltype(field)>::Type;
    const absl::optional<T>& value = elf.*field.member;
    const std::string title = absl::StrCat(field.title, " (", field.section, "): ");
    if constexpr (IsListRecord<T>::value) {
      using Element = typename std::decay_t<decltype(elementsOf(*value))>::value_type;
      constexpr bool kEdges = !IsRecord<Element>::value;
      const auto* list = value ? &elementsOf(*value) : nullptr;
      const size_t count = list ? list->size() : 0;
      std::vector<Column> columns = columnsOf<Element>();
      columns.insert(columns.begin(), Column{"[Nr]"});
      out.table({field.json_name,
                 title + stateOf(count, list, kEdges ? "edge" : "entry",
                                 kEdges ? "edges" : "entries"),
                 columns, count, list != nullptr},
                [&](size_t i) {
                  Cells cells = cellsOf((*list)[i]);
                  cells.insert(cells.begin(), textOnly(rowNumber(i)));
                  return cells;
                });
    } else if constexpr (IsMap<T>::value) {
      const std::string key = keyNameOf(field.json_name);
      const auto entries = value ? sortedEntries(*value) : decltype(sortedEntries(*value))();
      std::vector<Column> columns = {{""}};
      if constexpr (IsRecord<typename T::mapped_type>::value) {
        columns = columnsOf<typename T::mapped_type>();
        columns.insert(columns.begin(), Column{"Name"});
      }
      out.table({field.json_name,
                 title + stateOf(entries.size(), value.has_value(), key.c_str(),
                                 (key + "s").c_str()),
                 columns, entries.size(), value.has_value()},
                [&](size_t i) { return entryCells(key.c_str(), *entries[i]); });
    } else {
      std::string text = "absent";
      if constexpr (IsRecord<T>::value) {
        std::vector<std::string> parts;
        if (value) {
          visitFields([&parts](const char* name,
                               const auto& v) { parts.push_back(absl::StrCat(name, " ", v)); },
                      *value);
          text = absl::StrJoin(parts, ", ");
        }
      } else if constexpr (std::is_integral<T>::value) {
        if (value) text = absl::StrFormat("%u (0x%x)", *value, *value);
      } else if (value) {
        text = value->empty() ? "present but empty" : quoteText(*value);
      }
      out.value(title, {{field.json_name, value ? toJson(*value) : Json(), text}});
    }
  });
  out.end();
}

std::function<int()> declareDebug(CLI::App& app) {
  auto args = declareFileArgs(app, "--json");
  return [args] {
    ELF elf = loadImage(args->file);
    writeDebug(elf, *makePrinter(args->flag, std::cout));
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
