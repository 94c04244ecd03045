// Helpers for the human-readable output of the commands.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_TEXT_FORMAT_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_TEXT_FORMAT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "absl/strings/string_view.h"

namespace zelk_elf {
namespace cli {

// `text` in double quotes, C-style: \" \\ \n \t \r, other bytes outside
// printable ASCII as \xNN. Never spans lines.
std::string quoteText(absl::string_view text);

// "0x" and `digits` lowercase hex digits (more when the value needs them).
std::string hexValue(uint64_t value, int digits);

// Columns padded to their widest cell, separated by one space, each line
// indented and stripped of trailing spaces.
class TextTable {
 public:
  // `right_aligned[i]` tells how column i is padded.
  explicit TextTable(std::vector<bool> right_aligned)
      : right_aligned_(std::move(right_aligned)) {}

  void addRow(std::vector<std::string> cells) {
    rows_.push_back(std::move(cells));
  }
  std::string render(absl::string_view indent) const;

 private:
  std::vector<bool> right_aligned_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_TEXT_FORMAT_H_
