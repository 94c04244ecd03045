// zelk-elf end to end: output, failures, and edits equal to the library's.
#include <sys/stat.h>

#include "gtest/gtest.h"
#include "support/test_support.h"
#include "tools/tool_runner.h"
#include "zelk_elf/elf.h"

namespace zelk_elf_test {
namespace {

namespace support = zelk_elf::testing;
using support::Bytes;
using support::saveBytes;
using zelk_elf::ELF;

// A 32-bit little-endian image: the identification, then words as put.
struct Image32 {
  void put(std::initializer_list<uint32_t> words) {
    for (uint32_t w : words) bytes += {char(w), char(w >> 8), char(w >> 16), char(w >> 24)};
  }
  std::string bytes = std::string("\x7f" "ELF\x01\x01\x01\0\0\0\0\0\0\0\0\0", 16);
};

// Each test runs the tool in a folder of its own that holds the sample, s.
class CliTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(run("sample -o s").exit_code, 0); }

  ToolResult run(const std::string& line) { return runTool(line, dir_.path); }

  // A failure is one line on stderr, nothing on stdout and no file written.
  void expectFailure(const std::string& args, int code, const std::string& why) {
    const std::vector<std::string> before = support::listFiles(dir_.path);
    const ToolResult result = run(args);
    EXPECT_EQ(result.out + result.err + std::to_string(result.exit_code),
              "zelk-elf: " + why + "\n" + std::to_string(code)) << args;
    EXPECT_EQ(support::listFiles(dir_.path), before) << args;
  }

  TempDir dir_;
};

// ZELK_ELF_UPDATE_GOLDEN=1 rewrites the goldens after a deliberate change.
TEST_F(CliTest, Goldens) {
  writeFile(dir_.file("h"), readFile(ZELK_ELF_SHARED_DIR "/corpus/real/hello_64"));
  const std::pair<const char*, std::string> kGoldens[] = {
      {"sample_info.txt", "info s"}, {"sample_info.json", "info s --json"},
      {"sample_debug.txt", "debug s"}, {"sample_debug.json", "debug s --json"},
      {"sample_cfg.txt", "cfg s"}, {"sample_cfg.dot", "cfg s --dot"},
      {"hello_64_info.txt", "info h"}, {"hello_64_info.json", "info h --json"},
      {"sample_check.txt", "check s"}, {"help.txt", "--help"}};
  for (const auto& [name, args] : kGoldens) {
    const std::string golden = std::string(ZELK_ELF_GOLDEN_DIR "/") + name;
    const ToolResult result = run(args);
    if (std::getenv("ZELK_ELF_UPDATE_GOLDEN")) writeFile(golden, result.out);
    EXPECT_EQ(result.err + std::to_string(result.exit_code), "0") << name;
    EXPECT_EQ(result.out, readFile(golden)) << name;
  }
}

TEST_F(CliTest, Errors) {
  ASSERT_EQ(::mkfifo(dir_.file("fifo").c_str(), 0600), 0);
  const std::string see = " (see 'zelk-elf ", help = see + "edit --help')";
  const std::tuple<std::string, int, std::string> kRows[] = {
      {"", 2, "missing COMMAND" + see + "--help')"},
      {"cfg s --dot --json", 2,
       "cfg: The following argument was not expected: --json" + see + "cfg --help')"},
      {"edit -o o", 2, "edit: missing FILE (or --new)" + help},
      {"edit s -o o --machine 1\n2", 2,
       "edit: bad number '1\\n2' for --machine (decimal or 0x hex expected)" + help},
      {"edit s -o o --machine 0x10000", 2,
       "edit: number '0x10000' for --machine is out of range (at most 65535)" + help},
      {"edit s -o o --set-text a", 2,
       "edit: bad data 'a' for --set-text (an even number of hex digits or @PATH expected)" + help},
      {"edit s -o o --set-section =00", 2, "edit: empty NAME in '=00' for --set-section" + help},
      {"info no", 1, "info: cannot open 'no': No such file or directory"},
      {"info \x1b[2J", 1, "info: cannot open '\\x1b[2J': No such file or directory"},
      {"debug .", 1, "debug: cannot read '.': Is a directory"},
      {"check /dev/zero", 1,
       "check: cannot read '/dev/zero': larger than the 1 GiB limit of an input without a size"},
      {"sample -o fifo", 1, "sample: cannot write 'fifo': not a regular file"}};
  for (const auto& [args, code, why] : kRows) expectFailure(args, code, why);
  // Every command refuses each bad image for the same reason (the reasons
  // themselves are the engine's and the payload table's to check).
  const std::pair<std::string, std::string> kBadImages[] = {
      {"hello\n", "not an ELF image (no ELF magic number)"},
      {"\x7f" "ELF\x03\x01\x01" + std::string(57, 0), "unknown ELF class 3"},
      {"id=", "payload is empty"},
      {"swp=010000000200", "payload of 6 bytes ends inside an element at offset 4"}};
  for (auto [contents, reason] : kBadImages) {
    const size_t split = contents.find('=');
    if (split == std::string::npos) {
      writeFile(dir_.file("bad"), contents);
    } else {
      reason = ".zelk.dbg." + contents.substr(0, split) + ": " + reason;
      ASSERT_EQ(run("edit --new -o bad --set-section .zelk.dbg." + contents).exit_code, 0);
    }
    for (std::string args : {"check", "info", "debug", "cfg", "edit -o o", "diff s"}) {
      const std::string command = args.substr(0, args.find(' '));
      expectFailure(args + " bad", 1, command + ": 'bad': " + reason);
    }
  }
  // Counts in section 0 (the gABI's extended numbering): the library reads
  // no sections then, so the commands that show or save them refuse. x is a
  // fuzz finding with two counts there; w a 64-bit big-endian image with all
  // three, and 65,535 program headers to carry PN_XNUM.
  writeFile(dir_.file("x"), readFile(ZELK_ELF_SOURCE_DIR
                                     "/fuzz/findings/capi_fuzz/extended-section-numbering"));
  std::string w("\x7f" "ELF\x02\x02\x01", 7);
  const size_t table = 64 + 56 * 0xffff;
  w.resize(table + 64);
  for (auto [at, v, width] : {std::tuple<size_t, uint64_t, int>{16, 2, 2}, {18, 0x5a4b, 2},
                              {20, 1, 4}, {32, 64, 8}, {40, table, 8}, {52, 64, 2}, {54, 56, 2},
                              {56, 0xffff, 2}, {58, 64, 2}, {62, 0xffff, 2}, {table + 32, 70000, 8},
                              {table + 40, 3, 4}, {table + 44, 70000, 4}}) {
    for (int b = 0; b < width; ++b) w[at + width - 1 - b] = char(v >> (8 * b));
  }
  writeFile(dir_.file("w"), w);
  const std::pair<const char*, std::string> kExtended[] = {
      {"x", "4 sections counted in section 0; the name table's index, 1, in section 0"},
      {"w", "70000 sections counted in section 0; the name table's index, 3, in section 0; "
            "70000 program headers counted in section 0"}};
  for (const auto& [file, what] : kExtended) {
    for (std::string command : {"check", "info", "edit"}) {
      expectFailure(command + " " + file + (command == "edit" ? " -o o" : ""), 1,
                    command + ": '" + file + "': uses extended section numbering (" + what +
                        "), which this tool would lose; --force to go on");
    }
  }
  EXPECT_EQ(run("check x --force").out, "x: ok\n");
}

// Symbol-map entries whose keys share one bucket of a map reserved for them.
std::string crowdedSymbols(size_t count) {
  std::string entries;
  for (const std::string& key : support::crowdedKeys(count)) {
    entries += (entries.empty() ? "{\"symbol\":\"" : ",{\"symbol\":\"") + key;
    entries += "\",\"kind\":1,\"address\":0}";
  }
  return "{\"symbol_map\":[" + entries + "]}";
}

TEST_F(CliTest, BadDebugDocuments) {
  const std::pair<std::string, std::string> kDocuments[] = {
      {R"({"pm_size":1e400})", "$.pm_size: number overflow parsing '1e400'"},
      {R"({"pm_size":)" + std::string(400, '9') + "}",
       "$.pm_size: number overflow parsing '" + std::string(400, '9') + "'"},
      {R"({"pm_size":1,"pm_size":2})", "$: duplicate member \"pm_size\""},
      {R"({"spill_list":[{"address":1,"address":1}]})",
       "$.spill_list[0]: duplicate member \"address\""},
      {R"({"\u001b]0;x\u0007":1})", "$[\"\\x1b]0;x\\x07\"]: unknown member"},
      {crowdedSymbols(33),
       "$.symbol_map[32].symbol: more than 32 keys in one hash bucket (keys built to collide)"},
      {R"({"verify_info":{"hex":"f"}})", "$.verify_info.hex: expected an even number of hex digits"},
      {"[]", "$: expected an object, found array"},
      {R"({"spills":[]})", "$.spills: unknown member"},
      {R"({"swp_list":[{"address":4294967296}]})",
       "$.swp_list[0].address: 4294967296 is out of range (at most 4294967295)"},
      {R"({"pm_size":"8"})", "$.pm_size: expected an unsigned integer, found \"8\""},
      {R"({"debug_id":{"kind":1,"id0":2}})", "$.debug_id: missing member \"id1\""},
      {R"({"symbol_map":[{"symbol":"a","kind":1,"address":0},)"
       R"({"symbol":"a","kind":1,"address":4}]})", "$.symbol_map[1].symbol: duplicate key \"a\""},
      {"{\"verify_info\":\"\xff\"}", "$.verify_info: parse error at line 1, column 17: syntax "
       "error while parsing value - invalid string: ill-formed UTF-8 byte"},
      // Saving would keep the section, and the value would come back.
      {R"({"verify_info":"","pm_size":null})",
       "$.pm_size: null cannot remove the .zelk.dbg.pmsize section the image holds"}};
  for (const auto& [document, where] : kDocuments) {
    writeFile(dir_.file("d.json"), document);
    expectFailure("edit s -o o --set-debug d.json", 2, "edit: 'd.json': " + where);
  }
}

// Every operation, two of them twice, in an order where order matters.
TEST_F(CliTest, EditEqualsTheLibrary) {
  writeFile(dir_.file("a:b"), "\xde\xad\xbe\xef\x01");
  writeFile(dir_.file("d.json"), R"({"pm_size":4096,"verify_info":"doc"})");
  const ToolResult result = run(
      "edit s -o o --machine 7 --verify-info ok --set-debug d.json --set-comment 1\n\n3 "
      "--set-section a=b=0102 --set-text @a:b:8 --type 1 --entry 0x100000004 --machine 0x5a4c");
  EXPECT_EQ(result.err + result.out + std::to_string(result.exit_code), "0");
  absl::optional<ELF> elf = ELF::load(support::readFile(dir_.file("s")));
  ASSERT_TRUE(elf.has_value());
  elf->setMachine(7);
  elf->setVerifyInfo("ok");
  elf->pmSize = 4096;
  elf->setVerifyInfo("doc");
  elf->setCommentInfo({"1", "", "3"});
  elf->setSection("a=b", Bytes{1, 2});
  elf->setText(Bytes{0xde, 0xad, 0xbe, 0xef, 0x01}, 8);
  elf->setType(1);
  elf->setEntry(0x100000004);
  elf->setMachine(0x5a4c);
  EXPECT_TRUE(support::readFile(dir_.file("o")) == saveBytes(*elf));
}

// `debug --json X` fed to `edit X --set-debug` gives the same document, and X's
// own save when each map holds at most one key (payload order follows a map).
TEST_F(CliTest, DebugDocumentRoundTrip) {
  std::vector<std::string> images = support::listShared("corpus/real");
  const auto more = support::listShared("conformance/expected");
  images.insert(images.end(), more.begin(), more.end());
  images.push_back(dir_.file("s"));
  // Names of bytes that are not UTF-8 ("\xff", an overlong NUL, a
  // surrogate), of the UTF-8 they must not turn into ("\xc3\xbf" is "ÿ"),
  // and of UTF-8 of two and four bytes.
  ASSERT_EQ(run("edit --new -o names --set-section .zelk.dbg.spill="
                "00000000000001000000000000" "00ff"
                "04000000000002000000000000" "00c3bf"
                "08000000000002000000000000" "00c3a9"
                "0c000000000002000000000000" "00c080"
                "10000000000003000000000000" "00eda080"
                "14000000000004000000000000" "00f09f9880").exit_code, 0);
  images.push_back(dir_.file("names"));
  int checked = 0;
  for (const std::string& image : images) {
    SCOPED_TRACE(image);
    absl::optional<ELF> elf = ELF::load(support::readFile(image));
    const Bytes saved = elf ? saveBytes(*elf) : Bytes();
    if (saved.empty()) continue;  // does not load or save
    writeFile(dir_.file("x"), readFile(image));
    const std::string shown = run("debug x --json").out;
    writeFile(dir_.file("d.json"), shown);
    ASSERT_EQ(run("edit x -o e --set-debug d.json").err, "");
    EXPECT_EQ(run("debug e --json").out, shown);
    const bool fixed_order = elf->srcInfo.value_or(zelk_elf::SourceMap()).size() <= 1 &&
                             elf->symInfo.value_or(zelk_elf::SymbolMap()).size() <= 1;
    EXPECT_TRUE(!fixed_order || support::readFile(dir_.file("e")) == saved);
    ++checked;
  }
  EXPECT_GT(checked, 80);
}

TEST_F(CliTest, DiffShowsExactlyTheChange) {
  // a: the sample with one-element lists and maps, one comment line.
  writeFile(dir_.file("d.json"),
            R"({"spill_list":[{"address":4,"index":0,"kind":1,"name":"r4"}],)"
            R"("cfg_edges":[{"first":{"start":0,"end":12},"second":{"start":12,"end":24}}],)"
            R"("source_map":[{"source":"a","strings":[]}],)"
            R"("symbol_map":[{"symbol":"f","kind":1,"address":0}],)"
            R"("latency_list":[{"address":8,"kind":1,"values":[2,0,0,0]}]})");
  ASSERT_EQ(run("edit s -o a --set-debug d.json --set-comment c").exit_code, 0);
  const std::pair<std::string, std::string> kRows[] = {
      {"", "equal\n"},
      {"--machine 7 --type 3 --entry 0x44 --verify-info ok --set-comment e",
       "type: 2 -> 3\nmachine: 0x5a4b -> 0x7\nentry: 0x0 -> 0x44\n"
       "comment_lines[0]: \"c\" -> \"e\"\n"
       "verify_info: \"verified: 3 blocks, 1 loop, no hazards\" -> \"ok\"\n"},
      {"--set-section .n=01", "sections[\".n\"]: absent -> {\"index\":13,\"type\":1,"
       "\"flags\":0,\"address\":0,\"alignment\":1,\"entry_size\":0,\"link\":0,\"info\":0}\n"},
      {R"({"debug_id":{"kind":0,"id0":9,"id1":7}})",
       "debug_id.kind: 1 -> 0\ndebug_id.id0: 258 -> 9\n"},
      {R"({"spill_list":[{"address":4,"index":2,"kind":1,"name":""}]})",
       "spill_list[0].index: 0 -> 2\nspill_list[0].name: \"r4\" -> \"\"\n"},
      {R"({"spill_list":[{"address":4,"index":0,"kind":1,"name":"r4"},)"
       R"({"address":8,"index":0,"kind":1,"name":"\u009b2J"}]})",
       "spill_list[1]: absent -> {\"address\":8,\"index\":0,\"kind\":1,\"name\":\"\\xc2\\x9b2J\"}\n"},
      {R"({"swp_list":[{"address":12},{"address":20},{"address":28}]})",
       "swp_list[2]: absent -> {\"address\":28}\n"},
      {R"({"cfg_edges":[{"first":{"start":0,"end":12},"second":{"start":16,"end":24}}]})",
       "cfg_edges[0].second.start: 0xc -> 0x10\n"},
      {R"({"source_map":[{"source":"a","strings":["x"]}]})",
       "source_map[\"a\"].strings[0]: absent -> \"x\"\n"},
      {R"({"symbol_map":[{"symbol":"f","kind":2,"address":16}]})",
       "symbol_map[\"f\"].kind: 1 -> 2\nsymbol_map[\"f\"].address: 0x0 -> 0x10\n"},
      {R"({"pm_size":4096})", "pm_size: 8192 -> 4096\n"},
      {R"({"latency_list":[{"address":8,"kind":3,"values":[2,0,0,9]}]})",
       "latency_list[0].kind: 1 -> 3\nlatency_list[0].values[3]: 0 -> 9\n"},
      {"--set-text 13004010:4",
       "sections[\".text\"].bytes: 28 bytes differ from offset 0x4 (32 -> 4 bytes)\n"}};
  for (const auto& [args, expected] : kRows) {
    writeFile(dir_.file("d.json"), args);  // a document, when it starts with {
    const std::string edit = args[0] == '{' ? "--set-debug d.json" : args;
    ASSERT_EQ(run("edit a -o b " + edit).exit_code, 0) << args;
    const ToolResult diff = run("diff a b");
    EXPECT_EQ(diff.out + diff.err + std::to_string(diff.exit_code),
              expected + (expected == "equal\n" ? "0" : "1"));
  }
  EXPECT_EQ(run("diff a b --json").out,
            "{\n  \"schema\": 1,\n  \"differences\": [\n    {\n"
            "      \"path\": \"sections[\\\".text\\\"].bytes\",\n      \"before\": 32,\n"
            "      \"after\": 4,\n      \"offset\": 4,\n      \"count\": 28\n"
            "    }\n  ],\n  \"equal\": false\n}\n");
}

// Output is written as it goes: 1,024 segments each listing 1,024 sections,
// 74 KB in, 71 MB of JSON out, in at most 16 MiB more than showing the
// sample takes (a measure that holds under sanitizers and emulators too).
TEST_F(CliTest, OutputStreams) {
  Image32 image;
  const uint32_t n = 1024, names = 52 + 32 * n, end = names + 16 + 40 * n;
  // From e_type on; 16-bit fields in pairs.
  image.put({0x5a4b0002, 1, 0, 52, names + 16, 0, 32 << 16 | 52, 40 << 16 | n, 1 << 16 | n});
  for (uint32_t i = 0; i < n; ++i) image.put({1, 0, 0, 0, end, end, 5, 4});
  image.bytes.append("\0.shstrtab\0s\0\0\0\0", 16);
  image.put({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 3, 0, 0, names, 13, 0, 0, 1, 0});
  for (uint32_t i = 2; i < n; ++i) image.put({11, 1, 0, 0, names, 1, 0, 0, 1, 0});
  writeFile(dir_.file("wide"), image.bytes);
  const uint64_t baseline = run("info s --json").peak_rss;
  const ToolResult result = run("info wide --json");
  EXPECT_EQ(result.err + std::to_string(result.exit_code), "0");
  EXPECT_EQ(result.out.size(), 70790198u);  // all of it
  EXPECT_LT(result.peak_rss, baseline + (uint64_t{16} << 20));
}

// OUT keeps its owner, group and mode; where the owner cannot be kept (only
// root gives files away), the set-id bits go. A write past the file-size
// limit fails and leaves nothing behind.
TEST_F(CliTest, OutputKeepsOwnershipAndLeavesNoTemporaries) {
  const std::string prog = dir_.file("prog");
  const auto owner = [&prog] {
    struct stat info {};
    ::stat(prog.c_str(), &info);
    return std::make_tuple(info.st_uid, info.st_gid, info.st_mode & 07777);
  };
  ASSERT_EQ(run("sample -o prog").exit_code, 0);
  // As root: a set-uid program of another user is replaced as theirs.
  // Without root no file can be given away, so only the mode of one's own
  // set-uid file is checked.
  const bool root = ::geteuid() == 0;
  const uid_t other = root ? 65534 : ::geteuid();
  ASSERT_EQ(::chown(prog.c_str(), other, root ? other : ::getegid()), 0);
  ASSERT_EQ(::chmod(prog.c_str(), 04755), 0);
  EXPECT_EQ(run("edit prog -o prog --machine 3").exit_code, 0);
  EXPECT_EQ(owner(), std::make_tuple(other, root ? other : ::getegid(), 04755u));
  if (root) {  // and another user replacing root's gets a plain program
    ASSERT_EQ(::chown(prog.c_str(), 0, 0) | ::chmod(prog.c_str(), 04755) |
                  ::chmod(dir_.path.c_str(), 0777),
              0);
    EXPECT_EQ(runTool("edit prog -o prog --machine 4", dir_.path, {65534}).exit_code, 0);
    EXPECT_EQ(owner(), std::make_tuple(uid_t{65534}, gid_t{65534}, 0755u));
  }
  writeFile(dir_.file("blob"), std::string(4096, 'b'));
  const std::vector<std::string> before = support::listFiles(dir_.path);
  const ToolResult result =
      runTool("edit s -o big --set-section .b=@blob", dir_.path, {0, 2048});
  EXPECT_EQ(result.err + std::to_string(result.exit_code),
            "zelk-elf: edit: cannot write 'big': File too large\n1");
  EXPECT_EQ(support::listFiles(dir_.path), before);
}

// Text output escapes every byte a terminal would act on, and a long name
// runs on in its column rather than padding every row.
TEST_F(CliTest, TextIsSafeForTerminals) {
  const std::string forged = "\x1b]0;t\x07\r\n[99]\\", long_name(100, 'n');
  ASSERT_EQ(run("edit s -o t --set-section " + forged + "=00 --set-section " + long_name + "=00")
                .exit_code, 0);
  const std::string out = run("info t").out;
  EXPECT_EQ(out.find_first_of(std::string("\x1b\x07\r", 3)), std::string::npos);
  EXPECT_NE(out.find("\\x1b]0;t\\x07\\r\\n[99]\\\\ "), std::string::npos);
  const size_t row = out.find("[ 1] .shstrtab");
  EXPECT_EQ(out.substr(row, out.find('\n', row) - row).find("  STRTAB"), 36u);  // 32 wide
}

// Thousands of sections sharing one long name cost its bytes once: diff and
// info follow the input's size, not the repetitions (4,096 x 16 KiB here).
TEST_F(CliTest, RepeatedNamesCostTheirBytesOnce) {
  const uint32_t count = 4096, name = 16384;
  Image32 image;
  const uint32_t table = 12 + name, shoff = 52 + table;
  image.put({0x5a4b0002, 1, 0, 0, shoff, 0, 52, 40 << 16, 1 << 16 | count});
  image.bytes += std::string("\0.shstrtab\0", 11) + std::string(name, 'n') + '\0';
  image.put({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 3, 0, 0, 52, table, 0, 0, 1, 0});
  for (uint32_t i = 2; i < count; ++i) image.put({11, 1, 0, 0, 52, 0, 0, 0, 1, 0});
  writeFile(dir_.file("m"), image.bytes);
  const uint64_t baseline = run("diff s s").peak_rss;
  const ToolResult diff = run("diff m m");
  EXPECT_EQ(diff.out + diff.err, "equal\n");
  EXPECT_LT(diff.peak_rss, baseline + (uint64_t{16} << 20));
  const ToolResult info = run("info m");
  EXPECT_GT(info.out.size(), uint64_t{count} * name);  // every name, whole
  EXPECT_LT(info.peak_rss, baseline + (uint64_t{16} << 20));
}

// An edit holds the loaded image and the saved one, nothing more: 32 MiB in
// peaks below 2.3 times that above an edit of the sample. (A child's peak
// counts what the test held when it forked, so the image is made and let go
// first.)
TEST_F(CliTest, EditHoldsTwoCopies) {
  constexpr uint64_t kSize = 32 << 20;
  {
    ELF big;
    big.setSection(".big", Bytes(kSize, 0x5a));
    const Bytes saved = saveBytes(big);
    writeFile(dir_.file("big"), std::string(saved.begin(), saved.end()));
  }
  const uint64_t baseline = run("edit s -o o --machine 2").peak_rss;
  const ToolResult result = run("edit big -o o --machine 2");
  EXPECT_EQ(result.err + std::to_string(result.exit_code), "0");
  EXPECT_LT(result.peak_rss, baseline + kSize * 23 / 10);
}

}  // namespace
}  // namespace zelk_elf_test
