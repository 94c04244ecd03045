#include "tools/zelk-elf/text_format.h"

#include <algorithm>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"

namespace zelk_elf {
namespace cli {
namespace {

// The C escape used for `c` when it has a short one, or null.
const char* shortEscape(uint8_t c) {
  static constexpr struct {
    char c;
    const char* escape;
  } kEscapes[] = {{'"', "\\\""},
                  {'\\', "\\\\"},
                  {'\n', "\\n"},
                  {'\t', "\\t"},
                  {'\r', "\\r"}};
  for (const auto& entry : kEscapes) {
    if (entry.c == static_cast<char>(c)) return entry.escape;
  }
  return nullptr;
}

}  // namespace

std::string quoteText(absl::string_view text) {
  std::string out = "\"";
  for (char ch : text) {
    uint8_t c = static_cast<uint8_t>(ch);
    if (const char* escape = shortEscape(c)) {
      out += escape;
    } else if (c < 0x20 || c >= 0x7f) {
      absl::StrAppendFormat(&out, "\\x%02x", c);
    } else {
      out.push_back(ch);
    }
  }
  out += "\"";
  return out;
}

std::string hexValue(uint64_t value, int digits) {
  return absl::StrFormat("0x%0*x", digits, value);
}

std::string TextTable::render(absl::string_view indent) const {
  std::vector<size_t> widths;
  for (const auto& row : rows_) {
    if (widths.size() < row.size()) widths.resize(row.size(), 0);
    for (size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], row[i].size());
    }
  }
  std::string out;
  for (const auto& row : rows_) {
    std::string line(indent);
    for (size_t i = 0; i < row.size(); ++i) {
      if (i > 0) line.push_back(' ');
      std::string padding(widths[i] - row[i].size(), ' ');
      bool right = i < right_aligned_.size() && right_aligned_[i];
      absl::StrAppend(&line, right ? padding : "", row[i],
                      right ? "" : padding);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    absl::StrAppend(&out, line, "\n");
  }
  return out;
}

}  // namespace cli
}  // namespace zelk_elf
