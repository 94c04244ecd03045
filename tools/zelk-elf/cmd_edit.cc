// zelk-elf edit: apply library calls to an image in command-line order, then
// save it; and zelk-elf sample: write the sample image.
#include <map>

#include "CLI/CLI.hpp"
#include "absl/status/statusor.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"
#include "elf/internal.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

// What the value of an operation option makes: the value is checked, and a
// file it names read, right then, before the image is touched.
using MakeOperation =
    std::function<Operation(const std::string& option, const std::string&)>;

Operation setSection(const std::string& option, const std::string& value) {
  const size_t split = value.rfind('=');
  if (split == std::string::npos) {
    throw usageError(absl::StrCat("bad value '", value, "' for ", option,
                                  " (NAME=DATA expected)"));
  }
  // The empty name is the null section's: its bytes would be lost on save.
  if (split == 0) {
    throw usageError(absl::StrCat("empty NAME in '", value, "' for ", option));
  }
  std::string name = value.substr(0, split);
  std::vector<uint8_t> data = parseDataArg(value.substr(split + 1), option);
  return [name, data](ELF& elf) { elf.setSection(name, data); };
}

Operation setText(const std::string& option, const std::string& value) {
  const size_t split = value.rfind(':');
  const uint64_t align =
      split == std::string::npos
          ? 4
          : parseNumberArg(value.substr(split + 1), 0xffffffffu,
                           "the alignment of " + option);
  std::vector<uint8_t> code = parseDataArg(value.substr(0, split), option);
  return [code, align](ELF& elf) {
    elf.setText(code, static_cast<unsigned int>(align));
  };
}

template <typename T>
MakeOperation setNumber(void (ELF::*set)(T), uint64_t max) {
  return [set, max](const std::string& option, const std::string& value) {
    const auto number = static_cast<T>(parseNumberArg(value, max, option));
    return [set, number](ELF& elf) { (elf.*set)(number); };
  };
}

Operation setDebug(const std::string&, const std::string& path) {
  const std::vector<uint8_t> bytes = readInput(path);
  auto operations =
      std::make_shared<const std::vector<Operation>>(readDebugDocument(
          path, absl::string_view(reinterpret_cast<const char*>(bytes.data()),
                                  bytes.size())));
  return [operations](ELF& elf) {
    for (const Operation& operation : *operations) operation(elf);
  };
}

const std::vector<std::pair<std::string, MakeOperation>>& operationOptions() {
  static const std::vector<std::pair<std::string, MakeOperation>> kOptions = {
      {"--set-section", setSection},
      {"--set-text", setText},
      {"--set-comment",
       [](const std::string&, const std::string& text) -> Operation {
         std::vector<std::string> lines = absl::StrSplit(text, '\n');
         return [lines](ELF& elf) {
           elf.setCommentInfo({lines.begin(), lines.end()});
         };
       }},
      {"--machine", setNumber(&ELF::setMachine, 0xffff)},
      {"--type", setNumber(&ELF::setType, 0xffff)},
      {"--entry", setNumber(&ELF::setEntry, ~uint64_t{0})},
      {"--verify-info",
       [](const std::string&, const std::string& text) -> Operation {
         return [text](ELF& elf) { elf.setVerifyInfo(text); };
       }},
      {"--set-debug", setDebug}};
  return kOptions;
}

void save(ELF& elf, const std::string& output) {
  absl::StatusOr<ELF::Image> saved = saveWithReason(elf);
  if (!saved.ok()) {
    throw imageError(
        absl::StrCat("cannot save the image: ", saved.status().message()));
  }
  writeOutput(output, absl::MakeConstSpan(saved->data(), saved->size()));
}

std::function<int()> declareEdit(CLI::App& app) {
  struct Args {
    std::string input;
    bool from_new = false;
    bool force = false;
    std::string output;
  };
  auto args = std::make_shared<Args>();
  CLI::Option* file = app.add_option("FILE", args->input);
  app.add_flag("--new", args->from_new)->excludes(file);
  app.add_flag("--force", args->force);
  app.add_option("-o", args->output)->required();
  for (const auto& operation : operationOptions()) {
    app.add_option(operation.first)
        ->type_name("VALUE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  }
  return [args, &app] {
    if (!args->from_new && args->input.empty()) {
      throw usageError("missing FILE (or --new)");
    }
    if (args->output.empty())
      throw usageError("empty output file name for '-o'");
    // parse_order() lists an option once per use: the k-th takes value k.
    std::vector<Operation> operations;
    std::map<const CLI::Option*, size_t> uses;
    for (const CLI::Option* option : app.parse_order()) {
      for (const auto& operation : operationOptions()) {
        if (option->get_name() == operation.first) {
          operations.push_back(operation.second(
              operation.first, option->results()[uses[option]++]));
        }
      }
    }
    ELF elf = args->from_new ? ELF() : loadImage(args->input, args->force);
    for (const Operation& operation : operations) operation(elf);
    save(elf, args->output);
    return kExitOk;
  };
}

// A small but realistic zelk executable, built through the public class.
ELF makeSampleImage() {
  // Eight instruction words of a summing loop: main at 0x00, sum at 0x0c.
  static constexpr uint8_t kCode[] = {
      0x13, 0x00, 0x40, 0x10, 0x23, 0x10, 0x08, 0x00, 0x37, 0x02, 0x00,
      0x01, 0x6f, 0x00, 0xc0, 0x00, 0x33, 0x05, 0xb5, 0x00, 0x63, 0x14,
      0x05, 0xfe, 0x03, 0x20, 0x08, 0x00, 0x67, 0x80, 0x00, 0x00};
  ELF elf;
  elf.setMachine(0x5a4b);  // "ZK"
  elf.setType(2);          // executable
  elf.setEntry(0);
  elf.setText(kCode, 4);
  elf.setCommentInfo({"zelkcc 1.4.2 (zelk toolchain)", "-O2 -g -mcpu=zelk1"});

  elf.dbgID = DebugInfoID{1, 0x0102, 7};
  elf.spillInfo =
      SpillInfo{{{0x04, 0, 1, "r4"}, {0x10, 1, 2, "acc"}, {0x18, 0, 3, "r4"}}};
  elf.swpInfo = SWPInfo{{{0x0c}, {0x14}}};
  // Three blocks: entry, a self-looping body, exit.
  const BasicBlockRange entry{0x00, 0x0c}, body{0x0c, 0x18}, exit{0x18, 0x20};
  elf.cfgInfo = ControlFlowGraph{{{entry, body}, {body, body}, {body, exit}}};
  elf.srcInfo =
      SourceMap{{"main.zc", {"int main() {", "  return sum(xs, 4);", "}"}},
                {"sum.zc", {"for (i = 0; i < n; i++)", "  acc += xs[i];"}}};
  elf.symInfo =
      SymbolMap{{"main", {1, 0x00}}, {"sum", {1, 0x0c}}, {"xs", {2, 0x1000}}};
  elf.pmSize = 0x2000;
  elf.setVerifyInfo("verified: 3 blocks, 1 loop, no hazards");
  elf.latencyInfo = LatencyInfo{
      {{0x08, 1, 2, 0, 0, 0}, {0x10, 2, 1, 1, 0, 0}, {0x14, 3, 0, 0, 2, 1}}};
  return elf;
}

std::function<int()> declareSample(CLI::App& app) {
  auto output = std::make_shared<std::string>();
  app.add_option("-o", *output)->required();
  return [output] {
    if (output->empty()) throw usageError("empty output file name for '-o'");
    ELF elf = makeSampleImage();
    save(elf, *output);
    return kExitOk;
  };
}

}  // namespace

const Command kEditCommand = {
    "edit", "change an image and save it",
    "usage: zelk-elf edit (FILE | --new) -o OUT [--force] [operations...]\n\n"
    "Applies the operations to FILE (or a new image) in command-line order\n"
    "and saves the bytes ELF::save gives to OUT ('-': standard output),\n"
    "through a temporary file; an OUT that is not a regular file is refused.\n"
    "\n"
    "  --set-section NAME=DATA   setSection; split at the last '='\n"
    "  --set-text DATA[:ALIGN]   setText; ALIGN after the last ':', default 4\n"
    "  --set-comment TEXT        setCommentInfo, TEXT split at newlines\n"
    "  --machine N, --type N     setMachine, setType (N up to 0xffff)\n"
    "  --entry N                 setEntry\n"
    "  --verify-info TEXT        setVerifyInfo\n"
    "  --set-debug FILE          the debug values of a 'debug --json'\n"
    "                            document (null: make absent)\n\n"
    "DATA is @PATH (that file's bytes) or hex digits; N decimal or 0x hex.\n"
    "An image with extended section numbering is refused, as saving it would\n"
    "drop the sections it counts in section 0; --force saves it anyway.\n",
    declareEdit};

const Command kSampleCommand = {
    "sample", "write a sample image",
    "usage: zelk-elf sample -o FILE\n\n"
    "Writes a small, realistic zelk image with all nine debug values, the\n"
    "same bytes on every run, to FILE ('-': standard output).\n",
    declareSample};

}  // namespace cli
}  // namespace zelk_elf
