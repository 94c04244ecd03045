// Shared views of the decoded debug information: stable key order for the
// two maps, and the control-flow graph's blocks.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_DEBUG_VIEW_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_DEBUG_VIEW_H_

#include <string>
#include <utility>
#include <vector>

#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace cli {

// Map entries sorted by key (byte order), since the maps' own iteration
// order is unspecified and would make outputs unstable.
std::vector<const SourceMap::value_type*> sortedEntries(const SourceMap& map);
std::vector<const SymbolMap::value_type*> sortedEntries(const SymbolMap& map);

// "0x00000010..0x00000020": a block range as the producer wrote its bounds.
std::string rangeLabel(const BasicBlockRange& range);

// The distinct blocks of a graph in order of first appearance (first range
// of each edge before its second), and each edge as a pair of block indexes.
struct CfgBlocks {
  std::vector<BasicBlockRange> blocks;
  std::vector<std::pair<size_t, size_t>> edges;
};
CfgBlocks numberBlocks(const ControlFlowGraph& graph);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_DEBUG_VIEW_H_
