// The subcommands of zelk-elf and the argument handling they share.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_COMMAND_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_COMMAND_H_

#include <string>
#include <vector>

#include "absl/strings/string_view.h"

namespace zelk_elf {
namespace cli {

// One subcommand. `run` gets the arguments after the command name and
// appends what goes to stdout to `out` (written only when it returns), so a
// failing command prints nothing but its error line. It returns the exit code
// or throws CliError.
struct Command {
  const char* name;
  const char* summary;  // one line for the command list
  const char* help;     // full text of "zelk-elf NAME --help"
  int (*run)(const std::vector<std::string>& args, std::string* out);
};

extern const Command kInfoCommand;
extern const Command kDebugCommand;
extern const Command kCfgCommand;
extern const Command kCheckCommand;
extern const Command kEditCommand;
extern const Command kSampleCommand;

inline bool isHelpArg(absl::string_view arg) {
  return arg == "--help" || arg == "-h";
}

// The arguments of a command that takes one FILE and boolean flags.
struct FileArgs {
  bool help = false;
  std::string file;
  std::vector<std::string> flags;  // those given, from `allowed`

  bool has(absl::string_view flag) const;
};

// Throws a usage error for an unknown option, a second FILE or no FILE.
FileArgs parseFileArgs(const std::vector<std::string>& args,
                       const std::vector<std::string>& allowed);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_COMMAND_H_
