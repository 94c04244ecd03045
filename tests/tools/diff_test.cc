// diff reports exactly the change each edit makes, as text and as data.
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tools/tool_runner.h"

namespace zelk_elf_test {
namespace {

class DiffTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(runTool({"sample", "-o", sample_}).exit_code, 0);
  }

  // Edits the sample with `args` and diffs the sample against the result.
  ToolResult diffEdit(std::vector<std::string> args, bool json = false) {
    args.insert(args.begin(), {"edit", sample_, "-o", edited_});
    ToolResult edit = runTool(args);
    EXPECT_EQ(edit.exit_code, 0) << edit.err;
    std::vector<std::string> diff = {"diff", sample_, edited_};
    if (json) diff.push_back("--json");
    return runTool(diff);
  }

  TempDir dir_;
  std::string sample_ = dir_.file("sample.elf");
  std::string edited_ = dir_.file("edited.elf");
};

TEST_F(DiffTest, ExactlyTheChangeOfEachEdit) {
  struct Case {
    std::vector<std::string> args;
    std::string expected;
  };
  const Case cases[] = {
      {{}, "equal\n"},
      {{"--machine", "7"}, "machine: 0x5a4b -> 0x7\n"},
      {{"--type", "3"}, "type: 2 -> 3\n"},
      {{"--entry", "0x44"}, "entry: 0x0 -> 0x44\n"},
      {{"--set-text", "1300401023:8"},
       "sections[\".text\"].alignment: 4 -> 8\n"
       "sections[\".text\"].bytes: 27 bytes differ from offset 0x5 (32 -> 5 "
       "bytes)\n"},
      {{"--set-comment", "zelkcc 1.4.3 (zelk toolchain)"},
       "comment_lines[0]: \"zelkcc 1.4.2 (zelk toolchain)\" -> \"zelkcc "
       "1.4.3 (zelk toolchain)\"\n"
       "comment_lines[1]: \"-O2 -g -mcpu=zelk1\" -> \"\"\n"
       "comment_lines[2]: \"\" -> absent\n"},
      {{"--set-section", ".note=0102"},
       "sections[\".note\"]: absent -> {\"index\":13,\"type\":1,\"flags\":0,"
       "\"address\":0,\"alignment\":1,\"entry_size\":0,\"link\":0,"
       "\"info\":0}\n"},
      {{"--verify-info", "ok"},
       "verify_info: \"verified: 3 blocks, 1 loop, no hazards\" -> \"ok\"\n"},
  };
  for (const Case& c : cases) {
    ToolResult result = diffEdit(c.args);
    EXPECT_EQ(result.out, c.expected);
    EXPECT_EQ(result.exit_code, c.expected == "equal\n" ? 0 : 1);
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(DiffTest, JsonGivesTheSameAsData) {
  EXPECT_EQ(diffEdit({}, true).out,
            "{\n"
            "  \"schema\": 1,\n"
            "  \"differences\": [],\n"
            "  \"equal\": true\n"
            "}\n");
  EXPECT_EQ(diffEdit({"--set-text", "13004010:4"}, true).out,
            "{\n"
            "  \"schema\": 1,\n"
            "  \"differences\": [\n"
            "    {\n"
            "      \"path\": \"sections[\\\".text\\\"].bytes\",\n"
            "      \"before\": 32,\n"
            "      \"after\": 4,\n"
            "      \"offset\": 4,\n"
            "      \"count\": 28\n"
            "    }\n"
            "  ],\n"
            "  \"equal\": false\n"
            "}\n");
}

// An absent value and a present one: the list appears, then its elements.
TEST_F(DiffTest, PresenceOfDebugValues) {
  const std::string empty = dir_.file("empty.elf");
  ASSERT_EQ(runTool({"edit", "--new", "-o", empty, "--set-section",
                     ".zelk.dbg.swp=0c000000", "--set-section",
                     ".zelk.dbg.pmsize=00100000"})
                .exit_code,
            0);
  ToolResult result = runTool({"diff", empty, sample_});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_NE(result.out.find("swp_list[1]: absent -> {\"address\":20}\n"
                            "cfg_edges: absent -> []\n"),
            std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("pm_size: 4096 -> 8192\n"), std::string::npos);
}

}  // namespace
}  // namespace zelk_elf_test
