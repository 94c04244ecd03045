// zelk-elf check: does the image load, and if not, why.
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/command.h"
#include "tools/zelk-elf/image_file.h"

namespace zelk_elf {
namespace cli {
namespace {

constexpr char kHelp[] =
    "usage: zelk-elf check FILE\n"
    "\n"
    "Exits with 0 and prints \"FILE: ok\" when the image loads. Otherwise\n"
    "prints one line on stderr saying why (not ELF, a malformed header or\n"
    "tables, or which .zelk.dbg. section fails to decode and at which byte\n"
    "offset of its payload) and exits with 1.\n"
    "\n"
    "  --help   this text\n";

int runCheck(const std::vector<std::string>& args, std::string* out) {
  FileArgs parsed = parseFileArgs(args, {});
  if (parsed.help) {
    *out = kHelp;
    return kExitOk;
  }
  // loadImageFile explains any failure.
  loadImageFile(parsed.file);
  absl::StrAppend(out, parsed.file, ": ok\n");
  return kExitOk;
}

}  // namespace

const Command kCheckCommand = {"check", "exit 0 if the image loads, else why",
                               kHelp, runCheck};

}  // namespace cli
}  // namespace zelk_elf
