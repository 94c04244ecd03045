#include "tools/zelk-elf/debug_view.h"

#include <algorithm>
#include <map>

#include "absl/strings/str_cat.h"
#include "tools/zelk-elf/text_format.h"

namespace zelk_elf {
namespace cli {
namespace {

template <typename Map>
std::vector<const typename Map::value_type*> sortByKey(const Map& map) {
  std::vector<const typename Map::value_type*> entries;
  entries.reserve(map.size());
  for (const auto& entry : map) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->first < b->first; });
  return entries;
}

}  // namespace

std::vector<const SourceMap::value_type*> sortedEntries(const SourceMap& map) {
  return sortByKey(map);
}

std::vector<const SymbolMap::value_type*> sortedEntries(const SymbolMap& map) {
  return sortByKey(map);
}

std::string rangeLabel(const BasicBlockRange& range) {
  return absl::StrCat(hexValue(range.start, 8), "..", hexValue(range.end, 8));
}

CfgBlocks numberBlocks(const ControlFlowGraph& graph) {
  CfgBlocks result;
  std::map<std::pair<uint32_t, uint32_t>, size_t> index_of;
  const auto number = [&](const BasicBlockRange& range) {
    auto inserted = index_of.emplace(std::make_pair(range.start, range.end),
                                     result.blocks.size());
    if (inserted.second) result.blocks.push_back(range);
    return inserted.first->second;
  };
  for (const auto& edge : graph.edges) {
    size_t first = number(std::get<0>(edge));
    size_t second = number(std::get<1>(edge));
    result.edges.emplace_back(first, second);
  }
  return result;
}

}  // namespace cli
}  // namespace zelk_elf
