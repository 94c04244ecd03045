// zelk-elf cfg: the control-flow graph, as an edge list or Graphviz DOT.
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/command.h"
#include "tools/zelk-elf/debug_view.h"
#include "tools/zelk-elf/image_file.h"

namespace zelk_elf {
namespace cli {
namespace {

constexpr char kHelp[] =
    "usage: zelk-elf cfg FILE [--dot]\n"
    "\n"
    "Shows the control-flow graph of .zelk.dbg.cfg. Without --dot, one line\n"
    "per edge; with --dot, a Graphviz digraph whose nodes are the distinct\n"
    "blocks labelled by their range and whose edges come in payload order:\n"
    "\n"
    "  zelk-elf cfg a.elf --dot | dot -Tsvg > cfg.svg\n"
    "\n"
    "An image without the section gives an empty graph.\n"
    "\n"
    "  --dot    Graphviz DOT output\n"
    "  --help   this text\n";

void writeDot(const ELF& elf, std::string* out) {
  absl::StrAppend(out, "digraph cfg {\n");
  if (!elf.cfgInfo) {
    absl::StrAppend(out, "  // no .zelk.dbg.cfg section\n}\n");
    return;
  }
  absl::StrAppend(out, "  node [shape=box, fontname=\"monospace\"];\n");
  CfgBlocks graph = numberBlocks(*elf.cfgInfo);
  for (size_t i = 0; i < graph.blocks.size(); ++i) {
    absl::StrAppend(out, "  b", i, " [label=\"", rangeLabel(graph.blocks[i]),
                    "\"];\n");
  }
  for (const auto& edge : graph.edges) {
    absl::StrAppend(out, "  b", edge.first, " -> b", edge.second, ";\n");
  }
  absl::StrAppend(out, "}\n");
}

void writeText(const ELF& elf, std::string* out) {
  if (!elf.cfgInfo) {
    absl::StrAppend(out, "no .zelk.dbg.cfg section\n");
    return;
  }
  const auto& edges = elf.cfgInfo->edges;
  absl::StrAppend(out, edges.size(),
                  edges.size() == 1 ? " edge\n" : " edges\n");
  for (size_t i = 0; i < edges.size(); ++i) {
    absl::StrAppend(out, absl::StrFormat("  [%2u] ", i),
                    rangeLabel(std::get<0>(edges[i])), " -> ",
                    rangeLabel(std::get<1>(edges[i])), "\n");
  }
}

int runCfg(const std::vector<std::string>& args, std::string* out) {
  FileArgs parsed = parseFileArgs(args, {"--dot"});
  if (parsed.help) {
    *out = kHelp;
    return kExitOk;
  }
  ImageFile file = loadImageFile(parsed.file);
  if (parsed.has("--dot")) {
    writeDot(file.elf, out);
  } else {
    writeText(file.elf, out);
  }
  return kExitOk;
}

}  // namespace

const Command kCfgCommand = {"cfg", "the control-flow graph (--dot: Graphviz)",
                             kHelp, runCfg};

}  // namespace cli
}  // namespace zelk_elf
