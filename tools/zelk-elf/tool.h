// What the commands of zelk-elf share.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_TOOL_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_TOOL_H_

#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "absl/strings/string_view.h"
#include "absl/types/span.h"
#include "zelk_elf/elf.h"

namespace CLI {
class App;
}  // namespace CLI

namespace zelk_elf {
namespace cli {

constexpr int kExitOk = 0;
// Unreadable, not ELF, malformed, a failed write; for diff, images differ.
constexpr int kExitBadImage = 1;
// Unknown command or option, missing argument, bad number, data or document.
constexpr int kExitUsage = 2;

// Unwinds to main(), which prints it on one line; `hint` names the help.
class CliError : public std::runtime_error {
 public:
  CliError(int exit_code, const std::string& message, bool hint)
      : std::runtime_error(message), exit_code(exit_code), hint(hint) {}
  const int exit_code;
  const bool hint;
};
inline CliError usageError(const std::string& message) {
  return CliError(kExitUsage, message, true);
}
// A bad --set-debug document; its JSON path says more than the help would.
inline CliError documentError(const std::string& message) {
  return CliError(kExitUsage, message, false);
}
inline CliError imageError(const std::string& message) {
  return CliError(kExitBadImage, message, false);
}

struct Command {
  const char* name;
  const char* summary;  // one line for the command list
  const char* help;     // the text of "zelk-elf NAME --help"
  // Declares the arguments; the result runs after the parse, writing to
  // std::cout as it goes, or throwing CliError before any output.
  std::function<int()> (*declare)(CLI::App& app);
};
extern const Command kInfoCommand, kDebugCommand, kCfgCommand, kCheckCommand,
    kDiffCommand, kEditCommand, kSampleCommand;

// FILE and an optional flag, the arguments of the reading commands.
struct FileArgs {
  std::string file;  // "-" for standard input
  bool flag = false;
  bool force = false;  // --force, where declared
};
std::shared_ptr<const FileArgs> declareFileArgs(CLI::App& app, const char* flag,
                                                bool force = false);

// The whole file, or standard input for "-": a regular file by its size,
// anything else up to its end, at most 1 GiB.
std::vector<uint8_t> readInput(const std::string& path);
// Reads and loads an image; throws "'PATH': reason" with the loader's reason.
// Unless `keep_going`, an image that counts its sections or program headers
// in section 0 (the gABI's extended numbering, which the library does not
// follow) is refused too: showing or saving it would lose its sections.
ELF loadImage(const std::string& path, bool keep_going = true);
// To standard output for "-"; otherwise a temporary file is renamed over
// the target, which must be a regular file if it exists.
void writeOutput(const std::string& path, absl::Span<const uint8_t> bytes);

// Decimal, or hex after "0x", at most `max`; a usage error names `what`.
uint64_t parseNumberArg(absl::string_view text, uint64_t max,
                        absl::string_view what);
// DATA: "@PATH" for the file's bytes, or an even number of hex digits.
std::vector<uint8_t> parseDataArg(absl::string_view text,
                                  absl::string_view what);
// Lowercase hex, two digits per byte.
std::string toHex(absl::Span<const uint8_t> bytes);

using Operation = std::function<void(ELF&)>;
// The operations that set the debug values a `debug --json` document gives.
// Throws a document error naming the JSON path of the first problem.
std::vector<Operation> readDebugDocument(const std::string& name,
                                         absl::string_view text);

// C escapes for text output: \n \t \r, \xNN for every other byte outside
// printable ASCII (controls a terminal would act on, and all of UTF-8), and
// a backslash before each character of `also`. Error lines, which may hold
// escaped text already, pass an empty `also`.
std::string escapeText(absl::string_view text, absl::string_view also = "\\");
// escapeText in double quotes, with \" and \\.
std::string quoteText(absl::string_view text);
// Whether `text` is well-formed UTF-8 (no overlong forms or surrogates).
bool isUtf8(absl::string_view text);
// "0x" and `digits` lowercase hex digits (more when the value needs them).
std::string hexValue(uint64_t value, int digits);
// "[ 3]": the number of a row.
std::string rowNumber(size_t i);
// "1 edge", "2 edges".
std::string counted(size_t n, const char* one, const char* many);
// "0x00000010..0x00000020": a block range as the producer wrote its bounds.
std::string rangeLabel(const BasicBlockRange& range);
// Names of ELF values: readelf-style for text ("PROGBITS", hex when unknown)
// and spelled out for JSON ("program_bits", "unknown").
struct ValueName {
  std::string short_name;
  std::string long_name;
};
ValueName fileTypeName(uint16_t type);
ValueName sectionTypeName(uint32_t type);
ValueName segmentTypeName(uint32_t type);
// Letters ("WAX", 'x' for unknown bits) and names of the bits set.
std::string sectionFlagLetters(uint64_t flags);
std::vector<std::string> sectionFlagNames(uint64_t flags);
// "RWE" with spaces for clear bits.
std::string segmentFlagLetters(uint32_t flags);
std::vector<std::string> segmentFlagNames(uint32_t flags);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_TOOL_H_
