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

  // Edits the sample with `args` (and `document` through --set-debug when
  // given) and diffs the sample against the result.
  ToolResult diffEdit(std::vector<std::string> args,
                      const std::string& document, bool json = false) {
    if (!document.empty()) {
      writeBytes(dir_.file("d.json"),
                 std::vector<uint8_t>(document.begin(), document.end()));
      args.insert(args.end(), {"--set-debug", dir_.file("d.json")});
    }
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
    std::string document;  // for --set-debug
    std::string expected;
  };
  const std::string spill =
      R"({"address": 4, "index": 0, "kind": 1, "name": "r4"}, )"
      R"({"address": 68, "index": 1, "kind": 2, "name": "acc"}, )"
      R"({"address": 24, "index": 0, "kind": 3, "name": "r4"})";
  const Case cases[] = {
      {{}, "", "equal\n"},
      {{"--machine", "7"}, "", "machine: 0x5a4b -> 0x7\n"},
      {{"--type", "3"}, "", "type: 2 -> 3\n"},
      {{"--entry", "0x44"}, "", "entry: 0x0 -> 0x44\n"},
      {{"--set-text", "1300401023:8"},
       "",
       "sections[\".text\"].alignment: 4 -> 8\n"
       "sections[\".text\"].bytes: 27 bytes differ from offset 0x5 (32 -> 5 "
       "bytes)\n"},
      {{"--set-comment", "zelkcc 1.4.3 (zelk toolchain)"},
       "",
       "comment_lines[0]: \"zelkcc 1.4.2 (zelk toolchain)\" -> \"zelkcc "
       "1.4.3 (zelk toolchain)\"\n"
       "comment_lines[1]: \"-O2 -g -mcpu=zelk1\" -> \"\"\n"
       "comment_lines[2]: \"\" -> absent\n"},
      {{"--set-section", ".note=0102"},
       "",
       "sections[\".note\"]: absent -> {\"index\":13,\"type\":1,\"flags\":0,"
       "\"address\":0,\"alignment\":1,\"entry_size\":0,\"link\":0,"
       "\"info\":0}\n"},
      {{"--verify-info", "ok"},
       "",
       "verify_info: \"verified: 3 blocks, 1 loop, no hazards\" -> \"ok\"\n"},
      {{},
       R"({"debug_id": {"kind": 0, "id0": 258, "id1": 8}})",
       "debug_id.kind: 1 -> 0\ndebug_id.id1: 7 -> 8\n"},
      {{},
       "{\"spill_list\": [" + spill + "]}",
       "spill_list[1].address: 0x10 -> 0x44\n"},
      {{},
       R"({"swp_list": [{"address": 12}]})",
       "swp_list[1]: {\"address\":20} -> absent\n"},
      {{},
       R"({"cfg_edges": [{"first": {"start": 0, "end": 12}, "second": {"start": 12, "end": 24}},)"
       R"( {"first": {"start": 12, "end": 24}, "second": {"start": 12, "end": 24}},)"
       R"( {"first": {"start": 12, "end": 24}, "second": {"start": 24, "end": 32}},)"
       R"( {"first": {"start": 24, "end": 32}, "second": {"start": 0, "end": 12}}]})",
       "cfg_edges[3]: absent -> {\"first\":{\"start\":24,\"end\":32},"
       "\"second\":{\"start\":0,\"end\":12}}\n"},
      {{},
       R"({"source_map": [{"source": "main.zc", "strings": ["int main() {", "}"]}]})",
       "source_map[\"main.zc\"].strings[1]: \"  return sum(xs, 4);\" -> \"}\"\n"
       "source_map[\"main.zc\"].strings[2]: \"}\" -> absent\n"
       "source_map[\"sum.zc\"]: {\"source\":\"sum.zc\",\"strings\":[\"for (i = "
       "0; i < n; i++)\",\"  acc += xs[i];\"]} -> absent\n"},
      {{},
       R"({"symbol_map": [{"symbol": "main", "kind": 1, "address": 0}, )"
       R"({"symbol": "sum", "kind": 1, "address": 16}, {"symbol": "xs", "kind": 2, "address": 4096}]})",
       "symbol_map[\"sum\"].address: 0xc -> 0x10\n"},
      {{}, R"({"pm_size": 4096})", "pm_size: 8192 -> 4096\n"},
      {{},
       R"({"latency_list": [{"address": 8, "kind": 1, "values": [2, 0, 0, 0]}, )"
       R"({"address": 16, "kind": 2, "values": [1, 1, 0, 0]}, )"
       R"({"address": 20, "kind": 3, "values": [0, 0, 2, 9]}]})",
       "latency_list[2].values[3]: 1 -> 9\n"},
  };
  for (const Case& c : cases) {
    ToolResult result = diffEdit(c.args, c.document);
    EXPECT_EQ(result.out, c.expected) << c.document;
    EXPECT_EQ(result.exit_code, c.expected == "equal\n" ? 0 : 1);
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(DiffTest, JsonGivesTheSameAsData) {
  EXPECT_EQ(diffEdit({}, "", true).out,
            "{\n"
            "  \"schema\": 1,\n"
            "  \"differences\": [],\n"
            "  \"equal\": true\n"
            "}\n");
  EXPECT_EQ(diffEdit({"--set-text", "13004010:4"}, "", true).out,
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
