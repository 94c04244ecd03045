// edit produces exactly the bytes of ELF::save after the same calls; the
// reading commands tell absent and empty debug values apart and escape what
// they print.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "absl/strings/str_join.h"
#include "absl/strings/str_split.h"
#include "gtest/gtest.h"
#include "tools/tool_runner.h"
#include "zelk_elf/elf.h"

namespace zelk_elf_test {
namespace {

using zelk_elf::ELF;

std::vector<uint8_t> saveBytes(ELF& elf) {
  absl::optional<ELF::Image> saved = elf.save();
  EXPECT_TRUE(saved.has_value());
  if (!saved) return {};
  return std::vector<uint8_t>(saved->begin(), saved->end());
}

ELF loadFile(const std::string& path) {
  absl::optional<ELF> elf = ELF::load(readBytes(path));
  EXPECT_TRUE(elf.has_value()) << path;
  return elf ? *std::move(elf) : ELF();
}

class EditTest : public ::testing::Test {
 protected:
  // Runs edit and returns the bytes it wrote.
  std::vector<uint8_t> edit(std::vector<std::string> args) {
    args.insert(args.begin(), "edit");
    args.insert(args.end(), {"-o", out_});
    ToolResult result = runTool(args);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    return readBytes(out_);
  }

  TempDir dir_;
  std::string out_ = dir_.file("out.elf");
};

TEST_F(EditTest, NewImageMatchesTheLibrary) {
  std::string code = dir_.file("code.bin");
  writeBytes(code, {0xde, 0xad, 0xbe, 0xef, 0x01});
  std::vector<uint8_t> tool = edit({"--new",
                                    "--machine",
                                    "0x5a4b",
                                    "--type",
                                    "2",
                                    "--entry",
                                    "0x100",
                                    "--set-text",
                                    "0011223344556677:16",
                                    "--set-comment",
                                    "first\n\nthird",
                                    "--set-section",
                                    ".zelk.dbg.pmsize=00200000",
                                    "--verify-info",
                                    "checked",
                                    "--set-section",
                                    "a=b=0102",
                                    "--set-text",
                                    "@" + code + ":8",
                                    "--set-section",
                                    ".empty=",
                                    "--set-comment",
                                    ""});

  ELF elf;
  elf.setMachine(0x5a4b);
  elf.setType(2);
  elf.setEntry(0x100);
  elf.setText(
      std::vector<uint8_t>{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77}, 16);
  elf.setCommentInfo({"first", "", "third"});
  elf.setSection(".zelk.dbg.pmsize",
                 std::vector<uint8_t>{0x00, 0x20, 0x00, 0x00});
  elf.setVerifyInfo("checked");
  elf.setSection("a=b", std::vector<uint8_t>{0x01, 0x02});
  elf.setText(std::vector<uint8_t>{0xde, 0xad, 0xbe, 0xef, 0x01}, 8);
  elf.setSection(".empty", {});
  elf.setCommentInfo({""});
  EXPECT_EQ(tool, saveBytes(elf));
}

TEST_F(EditTest, LoadedImageMatchesTheLibrary) {
  std::string sample = dir_.file("sample.elf");
  ASSERT_EQ(runTool({"sample", "-o", sample}).exit_code, 0);
  std::vector<uint8_t> tool =
      edit({sample, "--set-text", ":0x2000", "--set-comment", "one", "--entry",
            "0x100000004", "--set-section", ".zelk.dbg.swp=01000000", "--type",
            "1"});

  ELF elf = loadFile(sample);
  elf.setText({}, 0x2000);
  elf.setCommentInfo({"one"});
  elf.setEntry(0x100000004);
  elf.setSection(".zelk.dbg.swp", std::vector<uint8_t>{1, 0, 0, 0});
  elf.setType(1);
  EXPECT_EQ(tool, saveBytes(elf));
}

TEST_F(EditTest, NoOperationsIsLoadThenSave) {
  std::string input = sharedDir() + "/corpus/real/hello_32";
  ELF elf = loadFile(input);
  EXPECT_EQ(edit({input}), saveBytes(elf));
}

// ALIGN comes after the last ':', so a path holding ':' needs an explicit
// alignment.
TEST_F(EditTest, PathsWithColonsAndNamesWithEquals) {
  std::string code = dir_.file("a:b.bin");
  writeBytes(code, {7, 7});
  std::vector<uint8_t> tool = edit({"--new", "--set-text", "@" + code + ":4",
                                    "--set-section", "x=y=@" + code});
  ELF elf;
  elf.setText(std::vector<uint8_t>{7, 7}, 4);
  elf.setSection("x=y", std::vector<uint8_t>{7, 7});
  EXPECT_EQ(tool, saveBytes(elf));
}

TEST_F(EditTest, OutputMayReplaceTheInput) {
  std::string image = dir_.file("image.elf");
  ASSERT_EQ(runTool({"edit", "--new", "-o", image}).exit_code, 0);
  ASSERT_EQ(runTool({"edit", image, "-o", image, "--machine", "7"}).exit_code,
            0);
  EXPECT_EQ(loadFile(image).getMachine(), 7);
  EXPECT_EQ(dir_.list(), std::vector<std::string>{"image.elf"});
}

// A link stays a link; its target gets the image.
TEST_F(EditTest, OutputThroughASymbolicLink) {
  std::string target = dir_.file("target.elf");
  writeBytes(target, {1, 2, 3});
  ASSERT_EQ(::symlink("target.elf", out_.c_str()), 0);
  std::vector<uint8_t> bytes = edit({"--new", "--machine", "9"});
  struct stat info;
  ASSERT_EQ(::lstat(out_.c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  EXPECT_EQ(readBytes(target), bytes);
  EXPECT_EQ(loadFile(target).getMachine(), 9);
}

// "-" is standard input for FILE and standard output for -o; "--" ends the
// options, so a file may be named like one.
TEST_F(EditTest, StandardStreamsAndDoubleDash) {
  std::string sample = dir_.file("-sample.elf");
  ASSERT_EQ(runTool({"sample", "-o", sample}).exit_code, 0);
  ToolResult to_stdout = runTool({"sample", "-o", "-"});
  EXPECT_EQ(to_stdout.exit_code, 0);
  EXPECT_TRUE(to_stdout.out == readText(sample));
  RunOptions from_stdin;
  from_stdin.stdin_path = sample;
  EXPECT_EQ(runTool({"check", "-"}, from_stdin).out, "-: ok\n");
  ToolResult piped =
      runTool({"edit", "-", "-o", "-", "--type", "1"}, from_stdin);
  EXPECT_EQ(piped.exit_code, 0) << piped.err;
  ELF elf = loadFile(sample);
  elf.setType(1);
  std::vector<uint8_t> expected = saveBytes(elf);
  EXPECT_TRUE(piped.out == std::string(expected.begin(), expected.end()));
  RunOptions in_dir;
  in_dir.cwd = dir_.path();
  EXPECT_EQ(runTool({"check", "--", "-sample.elf"}, in_dir).out,
            "-sample.elf: ok\n");
}

// The conformance cases, driven through the tool: each one's operations
// become edit options, and the output must equal the expected image.
TEST_F(EditTest, ConformanceCasesThroughTheTool) {
  std::ifstream cases(sharedDir() + "/conformance/cases.tsv");
  ASSERT_TRUE(cases.good());
  std::string line;
  int run = 0;
  while (std::getline(cases, line)) {
    std::vector<std::string> fields = absl::StrSplit(line, '\t');
    if (fields.size() != 2) continue;
    const std::string& name = fields[0];
    std::vector<std::string> ops =
        absl::StrSplit(fields[1], ' ', absl::SkipEmpty());
    if (ops.size() >= 2 && ops[0] == "new" && ops[1] == "64") continue;
    SCOPED_TRACE(name);
    std::vector<std::string> args;
    const auto data = [](const std::string& hex) {
      return hex == "EMPTY" ? std::string() : hex;
    };
    for (size_t i = 0; i < ops.size();) {
      const std::string& op = ops[i];
      if (op == "new") {
        args.push_back("--new");
        i += 1;
      } else if (op == "load") {
        args.push_back(sharedDir() + "/corpus/" + ops[i + 1]);
        i += 2;
      } else if (op == "section") {
        args.insert(args.end(),
                    {"--set-section", ops[i + 1] + "=" + data(ops[i + 2])});
        i += 3;
      } else if (op == "text") {
        args.insert(args.end(),
                    {"--set-text", data(ops[i + 1]) + ":" + ops[i + 2]});
        i += 3;
      } else if (op == "comment") {
        std::vector<std::string> lines;
        for (++i; ops[i] != "--"; ++i) lines.push_back(data(ops[i]));
        args.insert(args.end(), {"--set-comment", absl::StrJoin(lines, "\n")});
        i += 1;
      } else {  // machine, type, entry
        args.insert(args.end(), {"--" + op, ops[i + 1]});
        i += 2;
      }
    }
    std::vector<uint8_t> expected =
        readBytes(sharedDir() + "/conformance/expected/" + name + ".elf");
    ASSERT_FALSE(expected.empty());
    EXPECT_TRUE(edit(args) == expected) << absl::StrJoin(args, " ");
    ++run;
  }
  EXPECT_GT(run, 40);
}

class DebugValuesTest : public EditTest {
 protected:
  std::string show(const std::vector<std::string>& args) {
    ToolResult result = runTool(args);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return result.out;
  }
};

TEST_F(DebugValuesTest, AbsentAndEmptyAreToldApart) {
  edit({"--new", "--set-section", ".zelk.dbg.spill=", "--set-section",
        ".zelk.dbg.cfg=", "--set-section", ".zelk.dbg.src=0000000000000000",
        "--set-section", ".zelk.dbg.verifyinfo=0000000000000000",
        "--set-section", ".zelk.dbg.latency="});
  EXPECT_EQ(show({"debug", out_}),
            "debug id (.zelk.dbg.id): absent\n"
            "spill list (.zelk.dbg.spill): present but empty\n"
            "SWP list (.zelk.dbg.swp): absent\n"
            "CFG edges (.zelk.dbg.cfg): present but empty\n"
            "source map (.zelk.dbg.src): present but empty\n"
            "symbol map (.zelk.dbg.sym): absent\n"
            "PM size (.zelk.dbg.pmsize): absent\n"
            "verify info (.zelk.dbg.verifyinfo): present but empty\n"
            "latency list (.zelk.dbg.latency): present but empty\n");
  EXPECT_EQ(show({"debug", out_, "--json"}),
            "{\n"
            "  \"schema\": 1,\n"
            "  \"debug_id\": null,\n"
            "  \"spill_list\": [],\n"
            "  \"swp_list\": null,\n"
            "  \"cfg_edges\": [],\n"
            "  \"source_map\": [],\n"
            "  \"symbol_map\": null,\n"
            "  \"pm_size\": null,\n"
            "  \"verify_info\": \"\",\n"
            "  \"latency_list\": []\n"
            "}\n");
  EXPECT_EQ(show({"cfg", out_, "--dot"}),
            "digraph cfg {\n"
            "  node [shape=box, fontname=\"monospace\"];\n"
            "}\n");
  EXPECT_EQ(show({"cfg", out_}), "0 edges\n");
}

TEST_F(DebugValuesTest, NoDebugSectionsAtAll) {
  edit({"--new"});
  EXPECT_EQ(show({"cfg", out_, "--dot"}),
            "digraph cfg {\n  // no .zelk.dbg.cfg section\n}\n");
  EXPECT_EQ(show({"cfg", out_}), "no .zelk.dbg.cfg section\n");
  EXPECT_EQ(show({"check", out_}), out_ + ": ok\n");
}

// Names are shown escaped: C-style in text; in JSON, valid UTF-8 passes and
// other bytes become \u00XX.
TEST_F(DebugValuesTest, StringsAreEscaped) {
  edit({"--new", "--set-section",
        ".zelk.dbg.spill="
        "1000000002010400000000000000"
        "61220aff"
        "2000000000000200000000000000"
        "c3a9"});
  EXPECT_EQ(show({"debug", out_}),
            "debug id (.zelk.dbg.id): absent\n"
            "spill list (.zelk.dbg.spill): 2 entries\n"
            "  [Nr] Address    Index Kind Name\n"
            "  [ 0] 0x00000010     2    1 \"a\\\"\\n\\xff\"\n"
            "  [ 1] 0x00000020     0    0 \"\\xc3\\xa9\"\n"
            "SWP list (.zelk.dbg.swp): absent\n"
            "CFG edges (.zelk.dbg.cfg): absent\n"
            "source map (.zelk.dbg.src): absent\n"
            "symbol map (.zelk.dbg.sym): absent\n"
            "PM size (.zelk.dbg.pmsize): absent\n"
            "verify info (.zelk.dbg.verifyinfo): absent\n"
            "latency list (.zelk.dbg.latency): absent\n");
  // In JSON a byte that is not UTF-8 becomes the character of its value.
  std::string json = show({"debug", out_, "--json"});
  EXPECT_NE(json.find("\"name\": \"a\\\"\\n\xc3\xbf\""), std::string::npos)
      << json;
  EXPECT_NE(json.find("\"name\": \"\xc3\xa9\""), std::string::npos) << json;
}

// A real 64-bit executable: wide addresses, many section types, segments.
TEST_F(DebugValuesTest, InfoOfA64BitExecutable) {
  std::string input = sharedDir() + "/corpus/real/hello_64";
  std::string text = show({"info", input});
  std::string json = show({"info", input, "--json"});
  std::string golden = std::string(ZELK_ELF_GOLDEN_DIR) + "/hello_64_info";
  if (std::getenv("ZELK_ELF_UPDATE_GOLDEN") != nullptr) {
    writeBytes(golden + ".txt", std::vector<uint8_t>(text.begin(), text.end()));
    writeBytes(golden + ".json",
               std::vector<uint8_t>(json.begin(), json.end()));
  }
  EXPECT_EQ(text, readText(golden + ".txt"));
  EXPECT_EQ(json, readText(golden + ".json"));
}

}  // namespace
}  // namespace zelk_elf_test
