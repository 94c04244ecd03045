// The outputs of every reading command on the sample image, compared with
// the committed goldens. Set ZELK_ELF_UPDATE_GOLDEN=1 to rewrite them after
// a deliberate change of format.
#include <cstdlib>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tools/tool_runner.h"

namespace zelk_elf_test {
namespace {

std::string goldenPath(const std::string& name) {
  return std::string(ZELK_ELF_GOLDEN_DIR) + "/" + name;
}

void expectGolden(const std::string& name, const std::string& actual) {
  if (std::getenv("ZELK_ELF_UPDATE_GOLDEN") != nullptr) {
    writeBytes(goldenPath(name),
               std::vector<uint8_t>(actual.begin(), actual.end()));
  }
  ASSERT_TRUE(fileExists(goldenPath(name))) << goldenPath(name);
  EXPECT_EQ(readText(goldenPath(name)), actual) << "golden " << name;
}

class SampleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ToolResult made = runTool({"sample", "-o", sample_});
    ASSERT_EQ(made.exit_code, 0) << made.err;
    ASSERT_EQ(made.out, "");
    ASSERT_EQ(made.err, "");
  }

  // Runs a command on the sample and expects success without stderr.
  std::string show(std::vector<std::string> args) {
    args.insert(args.begin() + 1, sample_);
    ToolResult result = runTool(args);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  TempDir dir_;
  std::string sample_ = dir_.file("sample.elf");
};

TEST_F(SampleTest, InfoText) {
  expectGolden("sample_info.txt", show({"info"}));
}

TEST_F(SampleTest, InfoJson) {
  expectGolden("sample_info.json", show({"info", "--json"}));
}

TEST_F(SampleTest, DebugText) {
  expectGolden("sample_debug.txt", show({"debug"}));
}

TEST_F(SampleTest, DebugJson) {
  expectGolden("sample_debug.json", show({"debug", "--json"}));
}

TEST_F(SampleTest, CfgDot) {
  EXPECT_EQ(show({"cfg", "--dot"}),
            "digraph cfg {\n"
            "  node [shape=box, fontname=\"monospace\"];\n"
            "  b0 [label=\"0x00000000..0x0000000c\"];\n"
            "  b1 [label=\"0x0000000c..0x00000018\"];\n"
            "  b2 [label=\"0x00000018..0x00000020\"];\n"
            "  b0 -> b1;\n"
            "  b1 -> b1;\n"
            "  b1 -> b2;\n"
            "}\n");
}

TEST_F(SampleTest, CfgText) {
  EXPECT_EQ(show({"cfg"}),
            "3 edges\n"
            "  [ 0] 0x00000000..0x0000000c -> 0x0000000c..0x00000018\n"
            "  [ 1] 0x0000000c..0x00000018 -> 0x0000000c..0x00000018\n"
            "  [ 2] 0x0000000c..0x00000018 -> 0x00000018..0x00000020\n");
}

TEST_F(SampleTest, CheckSaysOk) {
  EXPECT_EQ(show({"check"}), sample_ + ": ok\n");
}

TEST_F(SampleTest, SampleIsTheSameEveryRun) {
  std::string again = dir_.file("again.elf");
  ASSERT_EQ(runTool({"sample", "-o", again}).exit_code, 0);
  EXPECT_EQ(readBytes(again), readBytes(sample_));
  // Only the two images: no temporary file is left behind.
  EXPECT_EQ(dir_.list(), (std::vector<std::string>{"again.elf", "sample.elf"}));
}

TEST_F(SampleTest, SampleReplacesAnExistingFile) {
  writeBytes(sample_, {1, 2, 3});
  ASSERT_EQ(runTool({"sample", "-o", sample_}).exit_code, 0);
  EXPECT_EQ(show({"check"}), sample_ + ": ok\n");
}

// Every command answers --help on stdout with its usage line and exit 0.
TEST(HelpTest, EveryCommandHasHelp) {
  for (const char* command :
       {"info", "debug", "cfg", "check", "edit", "sample"}) {
    for (const char* flag : {"--help", "-h"}) {
      ToolResult result = runTool({command, flag});
      EXPECT_EQ(result.exit_code, 0) << command;
      EXPECT_EQ(result.err, "") << command;
      EXPECT_EQ(result.out.rfind(std::string("usage: zelk-elf ") + command, 0),
                0u)
          << result.out;
    }
  }
}

TEST(HelpTest, HelpWinsOverOtherArguments) {
  ToolResult result = runTool({"info", "missing.elf", "--help"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out.rfind("usage: zelk-elf info FILE [--json]\n", 0), 0u);
}

TEST(HelpTest, GeneralHelpListsTheCommands) {
  ToolResult result = runTool({"--help"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.err, "");
  expectGolden("help.txt", result.out);
}

}  // namespace
}  // namespace zelk_elf_test
