#include "tools/zelk-elf/parse.h"

#include <limits>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/file_io.h"

namespace zelk_elf {
namespace cli {
namespace {

int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

absl::optional<uint64_t> parseUnsigned(absl::string_view text) {
  unsigned base = 10;
  if (absl::StartsWith(text, "0x") || absl::StartsWith(text, "0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return absl::nullopt;
  uint64_t value = 0;
  for (char c : text) {
    int digit = hexDigitValue(c);
    if (digit < 0 || static_cast<unsigned>(digit) >= base) return absl::nullopt;
    if (value > (std::numeric_limits<uint64_t>::max() - digit) / base) {
      return absl::nullopt;
    }
    value = value * base + digit;
  }
  return value;
}

uint64_t parseNumberArg(absl::string_view text, uint64_t max,
                        absl::string_view what) {
  absl::optional<uint64_t> value = parseUnsigned(text);
  if (!value) {
    throw usageError(absl::StrCat("bad number '", text, "' for ", what,
                                  " (decimal or 0x hex expected)"));
  }
  if (*value > max) {
    throw usageError(absl::StrCat("number '", text, "' for ", what,
                                  " is out of range (at most ", max, ")"));
  }
  return *value;
}

absl::optional<std::vector<uint8_t>> parseHex(absl::string_view text) {
  if (text.size() % 2 != 0) return absl::nullopt;
  std::vector<uint8_t> bytes;
  bytes.reserve(text.size() / 2);
  for (size_t i = 0; i < text.size(); i += 2) {
    int high = hexDigitValue(text[i]);
    int low = hexDigitValue(text[i + 1]);
    if (high < 0 || low < 0) return absl::nullopt;
    bytes.push_back(static_cast<uint8_t>(high * 16 + low));
  }
  return bytes;
}

std::vector<uint8_t> parseDataArg(absl::string_view text,
                                  absl::string_view what) {
  if (absl::StartsWith(text, "@")) return readFile(std::string(text.substr(1)));
  absl::optional<std::vector<uint8_t>> bytes = parseHex(text);
  if (!bytes) {
    throw usageError(absl::StrCat("bad data '", text, "' for ", what,
                                  " (an even number of hex digits or @PATH "
                                  "expected)"));
  }
  return *std::move(bytes);
}

std::string toHex(const uint8_t* data, size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(size * 2);
  for (size_t i = 0; i < size; ++i) {
    out.push_back(kDigits[data[i] >> 4]);
    out.push_back(kDigits[data[i] & 0xf]);
  }
  return out;
}

}  // namespace cli
}  // namespace zelk_elf
