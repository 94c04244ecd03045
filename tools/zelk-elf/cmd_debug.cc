// zelk-elf debug: the nine decoded debug values of an image; and
// zelk-elf cfg: the control-flow graph, as an edge list or Graphviz DOT.
#include <algorithm>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
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
// empty; returns the value when its elements should be listed.
template <typename List>
const List* heading(std::ostream& out, const char* title, const char* section,
                    const List* list, const char* one, const char* many) {
  const bool listed = list != nullptr && !list->empty();
  out << title << " (" << section << "): "
      << (listed ? counted(list->size(), one, many)
          : list ? "present but empty"
                 : "absent")
      << "\n";
  return listed ? list : nullptr;
}

// A list field: its heading, then a table of its elements under `header`;
// `cells(i, element)` gives one row.
template <typename List, typename Cells>
void listField(std::ostream& out, const char* title, const char* section,
               const List* list, std::vector<std::string> header,
               std::vector<bool> right_aligned, Cells cells,
               const char* one = "entry", const char* many = "entries") {
  if (heading(out, title, section, list, one, many) == nullptr) return;
  printTable(out, "  ", right_aligned, list->size() + 1,
             [&](size_t row) -> std::vector<std::string> {
               if (row == 0) return header;
               return cells(row - 1, (*list)[row - 1]);
             });
}

template <typename Map>
std::vector<const typename Map::value_type*> sortedOf(
    const absl::optional<Map>& map) {
  return map ? sortedEntries(*map)
             : std::vector<const typename Map::value_type*>();
}

void writeText(const ELF& elf, std::ostream& out) {
  out << "debug id (.zelk.dbg.id): "
      << (elf.dbgID ? absl::StrCat("kind ", elf.dbgID->kind, ", id0 ",
                                   elf.dbgID->id0, ", id1 ", elf.dbgID->id1)
                    : "absent")
      << "\n";
  listField(out, "spill list", ".zelk.dbg.spill",
            listOf(elf.spillInfo, &SpillInfo::locs),
            {"[Nr]", "Address", "Index", "Kind", "Name"},
            {false, false, true, true, false},
            [](size_t i, const SpillLoc& loc) -> std::vector<std::string> {
              return {rowNumber(i), hexValue(loc.addr, 8),
                      absl::StrCat(loc.index), absl::StrCat(loc.kind),
                      quoteText(loc.name)};
            });
  listField(out, "SWP list", ".zelk.dbg.swp",
            listOf(elf.swpInfo, &SWPInfo::locs), {"[Nr]", "Address"},
            {false, false},
            [](size_t i, const SWPLoc& loc) -> std::vector<std::string> {
              return {rowNumber(i), hexValue(loc.addr, 8)};
            });
  listField(
      out, "CFG edges", ".zelk.dbg.cfg",
      listOf(elf.cfgInfo, &ControlFlowGraph::edges),
      {"[Nr]", "First block", "", "Second block"}, {false, false, false, false},
      [](size_t i, const auto& edge) -> std::vector<std::string> {
        return {rowNumber(i), rangeLabel(std::get<0>(edge)), "->",
                rangeLabel(std::get<1>(edge))};
      },
      "edge", "edges");
  if (auto* src =
          heading(out, "source map", ".zelk.dbg.src",
                  pointer(elf.srcInfo), "source", "sources")) {
    for (const auto* entry : sortedEntries(*src)) {
      out << "  " << quoteText(entry->first) << ": "
          << counted(entry->second.size(), "string", "strings") << "\n";
      for (size_t i = 0; i < entry->second.size(); ++i) {
        out << "    " << rowNumber(i) << " " << quoteText(entry->second[i])
            << "\n";
      }
    }
  }
  const auto symbols = sortedOf(elf.symInfo);
  listField(
      out, "symbol map", ".zelk.dbg.sym", elf.symInfo ? &symbols : nullptr,
      {"Name", "Kind", "Address"}, {false, true, false},
      [](size_t, const auto* entry) -> std::vector<std::string> {
        return {quoteText(entry->first), absl::StrCat(entry->second.kind),
                hexValue(entry->second.addr, 8)};
      },
      "symbol", "symbols");
  out << "PM size (.zelk.dbg.pmsize): "
      << (elf.pmSize ? absl::StrFormat("%u (0x%x)", *elf.pmSize, *elf.pmSize)
                     : "absent")
      << "\n";
  out << "verify info (.zelk.dbg.verifyinfo): "
      << (!elf.verifyInfo           ? std::string("absent")
          : elf.verifyInfo->empty() ? std::string("present but empty")
                                    : quoteText(*elf.verifyInfo))
      << "\n";
  listField(
      out, "latency list", ".zelk.dbg.latency",
      listOf(elf.latencyInfo, &LatencyInfo::locs),
      {"[Nr]", "Address", "Kind", "Values"}, {false, false, true, false},
      [](size_t i, const LatencyInfoLoc& loc) -> std::vector<std::string> {
        return {rowNumber(i), hexValue(loc.addr, 8), absl::StrCat(loc.kind),
                absl::StrCat(loc.value0, " ", loc.value1, " ", loc.value2, " ",
                             loc.value3)};
      });
}

// A list member, null when the field is absent.
template <typename List>
void listMember(JsonStream& json, const char* key, const List* list) {
  if (list == nullptr) return json.member(key, nullptr);
  json.beginArray(key);
  for (const auto& element : *list) json.element(toJson(element));
  json.endArray();
}

void writeJson(const ELF& elf, std::ostream& out) {
  JsonStream json(out);
  json.member("schema", 1);
  json.member("debug_id", optionalJson(elf.dbgID));
  listMember(json, "spill_list", listOf(elf.spillInfo, &SpillInfo::locs));
  listMember(json, "swp_list", listOf(elf.swpInfo, &SWPInfo::locs));
  listMember(json, "cfg_edges", listOf(elf.cfgInfo, &ControlFlowGraph::edges));
  const auto sources = sortedOf(elf.srcInfo);
  listMember(json, "source_map", elf.srcInfo ? &sources : nullptr);
  const auto symbols = sortedOf(elf.symInfo);
  listMember(json, "symbol_map", elf.symInfo ? &symbols : nullptr);
  json.member("pm_size", elf.pmSize ? Json(*elf.pmSize) : Json());
  json.member("verify_info", optionalJson(elf.verifyInfo));
  listMember(json, "latency_list", listOf(elf.latencyInfo, &LatencyInfo::locs));
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
