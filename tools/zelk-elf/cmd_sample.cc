// zelk-elf sample: write the sample image.
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/command.h"
#include "tools/zelk-elf/file_io.h"
#include "tools/zelk-elf/sample_image.h"

namespace zelk_elf {
namespace cli {
namespace {

constexpr char kHelp[] =
    "usage: zelk-elf sample -o FILE\n"
    "\n"
    "Writes a small, realistic zelk image: 32-bit, .text carried by a\n"
    "loadable segment, .comment, and all nine .zelk.dbg. sections with\n"
    "plausible contents. The bytes are the same on every run.\n"
    "\n"
    "  -o FILE  the output file (required)\n"
    "  --help   this text\n";

int runSample(const std::vector<std::string>& args, std::string* out) {
  std::string output;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (isHelpArg(arg)) {
      *out = kHelp;
      return kExitOk;
    }
    if (arg != "-o") {
      throw usageError(arg.size() > 1 && arg[0] == '-'
                           ? absl::StrCat("unknown option '", arg, "'")
                           : absl::StrCat("unexpected argument '", arg, "'"));
    }
    if (i + 1 == args.size()) throw usageError("option '-o' needs a value");
    if (!output.empty()) throw usageError("option '-o' given twice");
    output = args[++i];
    if (output.empty()) throw usageError("empty output file name for '-o'");
  }
  if (output.empty()) throw usageError("missing '-o FILE'");

  ELF elf = makeSampleImage();
  absl::optional<ELF::Image> saved = elf.save();
  if (!saved) throw imageError("the library could not save the sample image");
  writeFileAtomically(output,
                      absl::MakeConstSpan(saved->data(), saved->size()));
  return kExitOk;
}

}  // namespace

const Command kSampleCommand = {"sample", "write a sample image", kHelp,
                                runSample};

}  // namespace cli
}  // namespace zelk_elf
