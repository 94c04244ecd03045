#include "tools/zelk-elf/command.h"

#include <algorithm>

#include "absl/strings/str_cat.h"
#include "tools/zelk-elf/cli_error.h"

namespace zelk_elf {
namespace cli {

bool FileArgs::has(absl::string_view flag) const {
  return std::find(flags.begin(), flags.end(), flag) != flags.end();
}

FileArgs parseFileArgs(const std::vector<std::string>& args,
                       const std::vector<std::string>& allowed) {
  FileArgs parsed;
  bool have_file = false;
  for (const std::string& arg : args) {
    if (isHelpArg(arg)) {
      parsed.help = true;
      return parsed;
    }
    if (arg.size() > 1 && arg[0] == '-') {
      if (std::find(allowed.begin(), allowed.end(), arg) == allowed.end()) {
        throw usageError(absl::StrCat("unknown option '", arg, "'"));
      }
      parsed.flags.push_back(arg);
      continue;
    }
    if (have_file) {
      throw usageError(absl::StrCat("unexpected argument '", arg, "'"));
    }
    parsed.file = arg;
    have_file = true;
  }
  if (!have_file) throw usageError("missing FILE");
  return parsed;
}

}  // namespace cli
}  // namespace zelk_elf
