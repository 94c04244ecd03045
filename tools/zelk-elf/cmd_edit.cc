// zelk-elf edit: apply library calls to an image in command-line order, then
// save it.
#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"
#include "absl/strings/string_view.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/command.h"
#include "tools/zelk-elf/file_io.h"
#include "tools/zelk-elf/image_file.h"
#include "tools/zelk-elf/parse.h"

namespace zelk_elf {
namespace cli {
namespace {

constexpr char kHelp[] =
    "usage: zelk-elf edit (FILE | --new) -o OUT [operations...]\n"
    "\n"
    "Starts from FILE (or from a new, empty image with --new), applies the\n"
    "operations in command-line order and saves the result to OUT. OUT is\n"
    "written under a temporary name and renamed, so a failed edit leaves no\n"
    "file behind. The bytes are exactly what ELF::save gives after the same\n"
    "calls in the same order.\n"
    "\n"
    "Operations:\n"
    "  --set-section NAME=DATA   setSection; split at the last '='\n"
    "  --set-text DATA[:ALIGN]   setText; ALIGN after the last ':', default 4\n"
    "  --set-comment TEXT        setCommentInfo with TEXT split at newlines\n"
    "                            (an empty TEXT is one empty line)\n"
    "  --machine N               setMachine (N up to 0xffff)\n"
    "  --type N                  setType (N up to 0xffff)\n"
    "  --entry N                 setEntry\n"
    "  --verify-info TEXT        setVerifyInfo\n"
    "\n"
    "DATA is @PATH (the bytes of that file) or hex digits; an empty DATA is\n"
    "no bytes. Numbers are decimal or 0x hex.\n"
    "\n"
    "  -o OUT   the output file (required)\n"
    "  --new    start from a new image instead of FILE\n"
    "  --help   this text\n";

using Operation = std::function<void(ELF&)>;

struct EditArgs {
  bool help = false;
  bool from_new = false;
  std::string input;
  std::string output;
  std::vector<Operation> operations;
};

Operation setSectionOp(absl::string_view value) {
  size_t split = value.rfind('=');
  if (split == absl::string_view::npos) {
    throw usageError(absl::StrCat("bad value '", value,
                                  "' for --set-section (NAME=DATA expected)"));
  }
  std::string name(value.substr(0, split));
  std::vector<uint8_t> data =
      parseDataArg(value.substr(split + 1), "--set-section");
  return [name, data](ELF& elf) { elf.setSection(name, data); };
}

Operation setTextOp(absl::string_view value) {
  uint64_t align = 4;
  size_t split = value.rfind(':');
  if (split != absl::string_view::npos) {
    align = parseNumberArg(value.substr(split + 1), 0xffffffffu,
                           "the alignment of --set-text");
    value = value.substr(0, split);
  }
  std::vector<uint8_t> code = parseDataArg(value, "--set-text");
  auto alignment = static_cast<unsigned int>(align);
  return [code, alignment](ELF& elf) { elf.setText(code, alignment); };
}

Operation setCommentOp(absl::string_view text) {
  std::vector<std::string> lines = absl::StrSplit(text, '\n');
  return [lines](ELF& elf) {
    std::vector<absl::string_view> views(lines.begin(), lines.end());
    elf.setCommentInfo(views);
  };
}

EditArgs parseEditArgs(const std::vector<std::string>& args) {
  EditArgs parsed;
  bool have_output = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (isHelpArg(arg)) {
      parsed.help = true;
      return parsed;
    }
    if (arg == "--new") {
      parsed.from_new = true;
      continue;
    }
    if (arg.size() < 2 || arg[0] != '-') {
      if (!parsed.input.empty()) {
        throw usageError(absl::StrCat("unexpected argument '", arg, "'"));
      }
      parsed.input = arg;
      continue;
    }
    static const char* const kWithValue[] = {
        "-o",        "--set-section", "--set-text", "--set-comment",
        "--machine", "--type",        "--entry",    "--verify-info"};
    if (std::find(std::begin(kWithValue), std::end(kWithValue), arg) ==
        std::end(kWithValue)) {
      throw usageError(absl::StrCat("unknown option '", arg, "'"));
    }
    if (i + 1 == args.size()) {
      throw usageError(absl::StrCat("option '", arg, "' needs a value"));
    }
    const std::string& value = args[++i];
    if (arg == "-o") {
      if (have_output) throw usageError("option '-o' given twice");
      if (value.empty()) throw usageError("empty output file name for '-o'");
      parsed.output = value;
      have_output = true;
    } else if (arg == "--set-section") {
      parsed.operations.push_back(setSectionOp(value));
    } else if (arg == "--set-text") {
      parsed.operations.push_back(setTextOp(value));
    } else if (arg == "--set-comment") {
      parsed.operations.push_back(setCommentOp(value));
    } else if (arg == "--machine") {
      auto machine =
          static_cast<uint16_t>(parseNumberArg(value, 0xffff, "--machine"));
      parsed.operations.push_back(
          [machine](ELF& elf) { elf.setMachine(machine); });
    } else if (arg == "--type") {
      auto type =
          static_cast<uint16_t>(parseNumberArg(value, 0xffff, "--type"));
      parsed.operations.push_back([type](ELF& elf) { elf.setType(type); });
    } else if (arg == "--entry") {
      uint64_t entry = parseNumberArg(value, ~uint64_t{0}, "--entry");
      parsed.operations.push_back([entry](ELF& elf) { elf.setEntry(entry); });
    } else {
      std::string text = value;
      parsed.operations.push_back(
          [text](ELF& elf) { elf.setVerifyInfo(text); });
    }
  }
  if (parsed.from_new && !parsed.input.empty()) {
    throw usageError("give either FILE or --new, not both");
  }
  if (!parsed.from_new && parsed.input.empty()) {
    throw usageError("missing FILE (or --new)");
  }
  if (!have_output) throw usageError("missing '-o OUT'");
  return parsed;
}

int runEdit(const std::vector<std::string>& args, std::string* out) {
  EditArgs parsed = parseEditArgs(args);
  if (parsed.help) {
    *out = kHelp;
    return kExitOk;
  }
  ELF elf = parsed.from_new ? ELF() : loadImageFile(parsed.input).elf;
  for (const Operation& operation : parsed.operations) operation(elf);
  absl::optional<ELF::Image> saved = elf.save();
  if (!saved) throw imageError("the library could not save the edited image");
  writeFileAtomically(parsed.output,
                      absl::MakeConstSpan(saved->data(), saved->size()));
  return kExitOk;
}

}  // namespace

const Command kEditCommand = {"edit", "change an image and save it", kHelp,
                              runEdit};

}  // namespace cli
}  // namespace zelk_elf
