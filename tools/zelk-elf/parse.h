// Parsing of the values that appear on the command line.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_PARSE_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_PARSE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "absl/strings/string_view.h"
#include "absl/types/optional.h"

namespace zelk_elf {
namespace cli {

// Decimal, or hexadecimal after "0x"/"0X". No sign, no spaces, no overflow.
absl::optional<uint64_t> parseUnsigned(absl::string_view text);

// Like parseUnsigned, bounded by `max`; throws a usage error naming `what`.
uint64_t parseNumberArg(absl::string_view text, uint64_t max,
                        absl::string_view what);

// An even number of hex digits (either case); empty text is no bytes.
absl::optional<std::vector<uint8_t>> parseHex(absl::string_view text);

// DATA of --set-section and --set-text: "@PATH" gives the file's bytes,
// anything else is hex digits. Throws a usage error for bad hex and an image
// error for an unreadable file.
std::vector<uint8_t> parseDataArg(absl::string_view text,
                                  absl::string_view what);

// Lowercase hex, two digits per byte, no separators.
std::string toHex(const uint8_t* data, size_t size);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_PARSE_H_
