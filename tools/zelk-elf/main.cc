// zelk-elf: inspect and edit zelk ELF images, including the compiler's debug
// information in the ".zelk.dbg." sections.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "absl/strings/str_replace.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/command.h"

namespace zelk_elf {
namespace cli {
namespace {

const Command* const kCommands[] = {&kInfoCommand, &kDebugCommand,
                                    &kCfgCommand,  &kCheckCommand,
                                    &kEditCommand, &kSampleCommand};

std::string generalHelp() {
  std::string text =
      "usage: zelk-elf COMMAND [arguments]\n"
      "\n"
      "Inspects and edits ELF images of the zelk processor, including the\n"
      "compiler's debug information in the .zelk.dbg. sections.\n"
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
                  "failed write), 2 bad usage.\n");
  return text;
}

bool writeAll(std::FILE* stream, const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stream) == text.size() &&
         std::fflush(stream) == 0;
}

// Errors take one line even when they quote arguments holding newlines.
void printError(const std::string& message) {
  std::string line =
      absl::StrReplaceAll(message, {{"\n", "\\n"}, {"\r", "\\r"}});
  writeAll(stderr, absl::StrCat("zelk-elf: ", line, "\n"));
}

int fail(const std::string& message) {
  printError(message);
  return kExitUsage;
}

int run(int argc, char** argv) {
  if (argc < 2) return fail("missing COMMAND (see 'zelk-elf --help')");
  std::string name = argv[1];
  if (isHelpArg(name) || name == "help") {
    writeAll(stdout, generalHelp());
    return kExitOk;
  }
  const Command* command = nullptr;
  for (const Command* candidate : kCommands) {
    if (name == candidate->name) command = candidate;
  }
  if (command == nullptr) {
    return fail(
        absl::StrCat("unknown command '", name, "' (see 'zelk-elf --help')"));
  }

  std::vector<std::string> args(argv + 2, argv + argc);
  std::string out;
  int code;
  try {
    code = command->run(args, &out);
  } catch (const CliError& error) {
    std::string message = absl::StrCat(name, ": ", error.what());
    if (error.exitCode() == kExitUsage) {
      absl::StrAppend(&message, " (see 'zelk-elf ", name, " --help')");
    }
    printError(message);
    return error.exitCode();
  } catch (const std::bad_alloc&) {
    printError(absl::StrCat(name, ": out of memory"));
    return kExitBadImage;
  }
  if (!writeAll(stdout, out)) {
    printError(absl::StrCat(name, ": cannot write to standard output"));
    return kExitBadImage;
  }
  return code;
}

}  // namespace
}  // namespace cli
}  // namespace zelk_elf

int main(int argc, char** argv) { return zelk_elf::cli::run(argc, argv); }
