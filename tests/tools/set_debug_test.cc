// edit --set-debug: the round-trip law over every image at hand, and the one
// line that refuses each kind of bad document.
#include <iostream>
#include <string>
#include <vector>

#include "absl/strings/match.h"
#include "absl/strings/str_replace.h"
#include "gtest/gtest.h"
#include "tools/tool_runner.h"
#include "zelk_elf/elf.h"

namespace zelk_elf_test {
namespace {

using zelk_elf::ELF;

// For every image X: `debug --json X` fed back through `edit X --set-debug`
// gives the same document, and the result equals X's own save as diff sees
// it (byte for byte when each map holds at most one key, beyond which their
// payload order follows the unordered map). X also equals its own re-save.
TEST(SetDebugTest, RoundTripLaw) {
  TempDir dir;
  const std::string sample = dir.file("sample.elf");
  ASSERT_EQ(runTool({"sample", "-o", sample}).exit_code, 0);
  std::vector<std::string> images = filesIn(sharedDir() + "/corpus/real");
  for (const std::string& file :
       filesIn(sharedDir() + "/conformance/expected")) {
    if (absl::EndsWith(file, ".elf")) images.push_back(file);
  }
  images.push_back(sample);
  const std::string saved = dir.file("saved.elf");
  const std::string edited = dir.file("edited.elf");
  const std::string document = dir.file("debug.json");
  int checked = 0, not_loading = 0, not_saving = 0;
  for (const std::string& image : images) {
    SCOPED_TRACE(image);
    ToolResult shown = runTool({"debug", image, "--json"});
    if (shown.exit_code != 0) {
      ++not_loading;
      continue;
    }
    if (runTool({"edit", image, "-o", saved}).exit_code != 0) {
      ++not_saving;
      continue;
    }
    writeBytes(document,
               std::vector<uint8_t>(shown.out.begin(), shown.out.end()));
    ToolResult set =
        runTool({"edit", image, "-o", edited, "--set-debug", document});
    ASSERT_EQ(set.exit_code, 0) << set.err;
    EXPECT_EQ(runTool({"debug", edited, "--json"}).out, shown.out);
    for (const std::string& other : {edited, image}) {
      ToolResult diff = runTool({"diff", other, saved});
      EXPECT_EQ(diff.exit_code, 0) << diff.out;
      EXPECT_EQ(diff.out, "equal\n");
    }
    absl::optional<ELF> elf = ELF::load(readBytes(image));
    ASSERT_TRUE(elf.has_value());
    if ((!elf->srcInfo || elf->srcInfo->size() <= 1) &&
        (!elf->symInfo || elf->symInfo->size() <= 1)) {
      EXPECT_TRUE(readBytes(edited) == readBytes(saved));
    }
    ++checked;
  }
  std::cout << "round-trip law: " << checked << " images checked, skipped "
            << not_loading << " that do not load and " << not_saving
            << " that do not save\n";
  EXPECT_GT(checked, 80);
  EXPECT_EQ(checked + not_loading + not_saving,
            static_cast<int>(images.size()));
}

TEST(SetDebugTest, BadDocumentsAreRefused) {
  struct Case {
    std::string document;
    std::string where;  // after "'DOC': "
  };
  const Case cases[] = {
      {"[]", "$: expected an object, found array"},
      {R"({"spill_list": [{"address": 1, "index": 0, "kind": 256, "name": "a"}]})",
       "$.spill_list[0].kind: 256 is out of range (at most 255)"},
      {R"({"swp_list": [{"address": 1}, {"address": 4294967296}]})",
       "$.swp_list[1].address: 4294967296 is out of range (at most "
       "4294967295)"},
      {R"({"pm_size": "8"})",
       "$.pm_size: expected an unsigned integer, found \"8\""},
      {R"({"pm_size": 1.5})",
       "$.pm_size: expected an unsigned integer, found 1.5"},
      {R"({"debug_id": {"kind": -1, "id0": 0, "id1": 0}})",
       "$.debug_id.kind: expected an unsigned integer, found -1"},
      {R"({"debug_id": {"kind": 1, "id0": 2}})",
       "$.debug_id: missing member \"id1\""},
      {R"({"spills": []})", "$.spills: unknown member"},
      {R"({"swp_list": [{"address": 1}, {"address": 2, "size": 4}]})",
       "$.swp_list[1].size: unknown member"},
      {R"({"cfg_edges": [{"first": {"start": 0, "end": 1}, "second": {"start": 0}}]})",
       "$.cfg_edges[0].second: missing member \"end\""},
      {R"({"source_map": [{"source": "a", "strings": [1]}]})",
       "$.source_map[0].strings[0]: expected a string, found 1"},
      {R"({"symbol_map": [{"symbol": "a", "kind": 1, "address": 0}, )"
       R"({"symbol": "a", "kind": 1, "address": 4}]})",
       "$.symbol_map[1].symbol: duplicate key \"a\""},
      {R"({"latency_list": [{"address": 1, "kind": 0, "values": [1, 2, 3]}]})",
       "$.latency_list[0].values: expected 4 values, found 3"},
      {R"({"verify_info": []})",
       "$.verify_info: expected a string, found array"},
      {R"({"schema": 2})", "$.schema: unsupported schema (1 expected)"},
      {"{\"spill_list\": [{\"address\": 1, \"index\": 0, \"kind\": 0, "
       "\"name\": \"a\xff\"}]}",
       "$.spill_list[0].name: parse error at line 1, column 65: syntax error "
       "while parsing value - invalid string: ill-formed UTF-8 byte"},
      {R"({"pm_size": })",
       "$.pm_size: parse error at line 1, column 13: syntax error while "
       "parsing value - unexpected '}'; expected '[', '{', or a literal"},
      // Saving would keep the section, and the value would come back.
      {R"({"verify_info": "ok", "pm_size": null})",
       "$.pm_size: null cannot remove the .zelk.dbg.pmsize section the image "
       "holds"},
  };
  TempDir dir;
  const std::string sample = dir.file("sample.elf");
  const std::string document = dir.file("d.json");
  ASSERT_EQ(runTool({"sample", "-o", sample}).exit_code, 0);
  for (const Case& c : cases) {
    writeBytes(document,
               std::vector<uint8_t>(c.document.begin(), c.document.end()));
    ToolResult result = runTool(
        {"edit", sample, "-o", dir.file("out.elf"), "--set-debug", document});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.err,
              "zelk-elf: edit: '" + document + "': " + c.where + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"d.json", "sample.elf"}));
  }
}

}  // namespace
}  // namespace zelk_elf_test
