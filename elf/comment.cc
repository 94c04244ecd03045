#include "elf/comment.h"

#include <algorithm>

#include "absl/strings/str_split.h"
#include "elf/sections.h"

namespace zelk_elf {

std::vector<absl::string_view> loadCommentSection(const engine::Image& image) {
  const engine::Section* section = image.findSection(kCommentSectionName);
  if (section == nullptr || section->bytes().data() == nullptr) return {};
  const absl::string_view data(reinterpret_cast<const char*>(section->bytes().data()),
                               section->bytes().size());
  // One view per line and no more: a section of NULs is all lines.
  std::vector<absl::string_view> lines;
  lines.reserve(static_cast<size_t>(std::count(data.begin(), data.end(), '\0')) + 1);
  for (absl::string_view line : absl::StrSplit(data, '\0')) lines.push_back(line);
  return lines;
}

std::vector<uint8_t> encodeCommentLines(
    const std::vector<absl::string_view>& lines) {
  size_t total = 0;
  for (absl::string_view line : lines) {
    if (!line.empty()) total += line.size() + 1;
  }
  std::vector<uint8_t> data;
  data.reserve(total);
  for (absl::string_view line : lines) {
    if (line.empty()) continue;
    data.insert(data.end(), line.begin(), line.end());
    data.push_back(0);
  }
  return data;
}

}  // namespace zelk_elf
