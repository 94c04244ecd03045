// zelk-elf: inspect, compare and edit zelk ELF images, including the
// compiler's debug information in the ".zelk.dbg." sections.
#include <csignal>
#include <cstdio>
#include <new>

#include "CLI/CLI.hpp"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {

std::shared_ptr<const FileArgs> declareFileArgs(CLI::App& app, const char* flag,
                                                bool force) {
  auto args = std::make_shared<FileArgs>();
  app.add_option("FILE", args->file)->required();
  if (flag != nullptr) app.add_flag(flag, args->flag);
  if (force) app.add_flag("--force", args->force);
  return args;
}

namespace {

const Command* const kCommands[] = {
    &kInfoCommand, &kDebugCommand, &kCfgCommand,   &kCheckCommand,
    &kDiffCommand, &kEditCommand,  &kSampleCommand};

std::string generalHelp() {
  std::string text =
      "usage: zelk-elf COMMAND [arguments]\n"
      "\n"
      "Inspects, compares and edits ELF images of the zelk processor,\n"
      "including the compiler's debug information in the .zelk.dbg.\n"
      "sections.\n"
      "\n"
      "Commands:\n";
  for (const Command* command : kCommands) {
    absl::StrAppendFormat(&text, "  %-8s %s\n", command->name,
                          command->summary);
  }
  absl::StrAppend(&text,
                  "\n"
                  "Run 'zelk-elf COMMAND --help' for the arguments of one.\n"
                  "Exit codes: 0 success, 1 bad or unreadable image (or a\n"
                  "failed write, or images that differ), 2 bad usage.\n");
  return text;
}

// Errors take one line, and reach the terminal without its control bytes,
// even when they quote arguments, file names or document keys.
int fail(int code, const std::string& message) {
  const std::string line = escapeText(message, "");
  std::cout.flush();
  std::fputs(absl::StrCat("zelk-elf: ", line, "\n").c_str(), stderr);
  return code;
}

int run(int argc, char** argv) {
  if (argc < 2)
    return fail(kExitUsage, "missing COMMAND (see 'zelk-elf --help')");
  const std::string name = argv[1];
  if (name == "--help" || name == "-h" || name == "help") {
    std::cout << generalHelp();
    return std::cout.flush() ? kExitOk : kExitBadImage;
  }
  const Command* command = nullptr;
  for (const Command* candidate : kCommands) {
    if (name == candidate->name) command = candidate;
  }
  if (command == nullptr) {
    return fail(kExitUsage, absl::StrCat("unknown command '", name,
                                         "' (see 'zelk-elf --help')"));
  }
  const std::string hint = absl::StrCat(" (see 'zelk-elf ", name, " --help')");
  CLI::App app(command->summary, name);
  app.set_help_flag("-h,--help");
  int code;
  try {
    std::function<int()> body = command->declare(app);
    app.parse(argc - 1, argv + 1);  // the command stands in for the program
    code = body();
  } catch (const CLI::CallForHelp&) {
    std::cout << command->help;
    code = kExitOk;
  } catch (const CLI::ParseError& error) {
    return fail(kExitUsage, absl::StrCat(name, ": ", error.what(), hint));
  } catch (const CliError& error) {
    return fail(error.exit_code,
                absl::StrCat(name, ": ", error.what(), error.hint ? hint : ""));
  } catch (const std::bad_alloc&) {
    return fail(kExitBadImage, absl::StrCat(name, ": out of memory"));
  }
  if (!std::cout.flush()) {
    return fail(kExitBadImage,
                absl::StrCat(name, ": cannot write to standard output"));
  }
  return code;
}

}  // namespace
}  // namespace cli
}  // namespace zelk_elf

int main(int argc, char** argv) {
  // Output goes out as it is made, through one buffered stream.
  std::ios::sync_with_stdio(false);
  // Past the file-size limit (ulimit -f) a write fails with EFBIG instead of
  // killing the tool, so its temporary file is removed and the error said.
  std::signal(SIGXFSZ, SIG_IGN);
  return zelk_elf::cli::run(argc, argv);
}
