// Every way a command can fail: the exit code, the one line on stderr, no
// stdout, and no output file (temporary or final) left behind.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "absl/strings/str_replace.h"
#include "gtest/gtest.h"
#include "tools/tool_runner.h"

namespace zelk_elf_test {
namespace {

// Why each bad image fails to load, as the loader words it. The one place
// to update when the loader's reasons change.
struct BadImage {
  const char* name;
  std::string bytes;        // the file, or
  const char* section;      // a new image holding this section
  const char* section_hex;  // with these bytes
  const char* reason;
};
const std::string kMagic =
    "\x7f"
    "ELF";
const BadImage kBadImages[] = {
    {"text", "hello, this is not an image\n", nullptr, nullptr,
     "not an ELF image (no ELF magic number)"},
    {"empty", "", nullptr, nullptr, "not an ELF image (no ELF magic number)"},
    {"short", kMagic + "\x01", nullptr, nullptr, "ELF identification cut short (5 of 16 bytes)"},
    {"class", kMagic + "\x03\x01\x01" + std::string(57, '\0'), nullptr, nullptr,
     "unknown ELF class 3"},
    {"order", kMagic + "\x01\x03\x01" + std::string(57, '\0'), nullptr, nullptr,
     "unknown ELF byte order 3"},
    {"id", "", ".zelk.dbg.id", "", ".zelk.dbg.id: payload is empty"},
    {"swp", "", ".zelk.dbg.swp", "010000000200",
     ".zelk.dbg.swp: payload of 6 bytes ends inside an element at offset 4"},
    {"cfg", "", ".zelk.dbg.cfg", "0100000002000000030000000400000001",
     ".zelk.dbg.cfg: payload of 17 bytes ends inside an element at offset 16"},
    {"src", "", ".zelk.dbg.src", "00000000000000",
     ".zelk.dbg.src: payload of 7 bytes ends inside a value at offset 0"},
    {"sym", "", ".zelk.dbg.sym", "", ".zelk.dbg.sym: payload is empty"},
    {"pmsize", "", ".zelk.dbg.pmsize", "001000",
     ".zelk.dbg.pmsize: payload of 3 bytes ends inside a value at offset 0"},
    {"verifyinfo", "", ".zelk.dbg.verifyinfo", "02000000000000",
     ".zelk.dbg.verifyinfo: payload of 7 bytes ends inside a value at offset 0"},
};

struct ErrorCase {
  std::vector<std::string> args;
  int code;
  std::string message;  // without "zelk-elf: " and the newline
};

class ErrorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(runTool({"sample", "-o", sample_}).exit_code, 0);
  }

  // $S is the sample, $O an output, $D the folder, $M a missing file.
  std::string expand(const std::string& text) const {
    return absl::StrReplaceAll(text, {{"$S", sample_},
                                      {"$O", dir_.file("out.elf")},
                                      {"$D", dir_.path()},
                                      {"$M", dir_.file("missing")}});
  }

  void expectFailure(const ErrorCase& c) {
    std::vector<std::string> args;
    for (const std::string& arg : c.args) args.push_back(expand(arg));
    std::vector<std::string> before = dir_.list();
    ToolResult result = runTool(args);
    const std::string message = expand(c.message);
    EXPECT_EQ(result.exit_code, c.code) << message;
    EXPECT_EQ(result.err, "zelk-elf: " + message + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(dir_.list(), before) << "files left behind for: " << message;
  }

  TempDir dir_;
  std::string sample_ = dir_.file("sample.elf");
};

TEST_F(ErrorTest, Usage) {
  const std::string hint = " (see 'zelk-elf edit --help')";
  const std::string number = " (decimal or 0x hex expected)" + hint;
  const std::string data =
      " (an even number of hex digits or @PATH expected)" + hint;
  std::vector<ErrorCase> cases = {
      {{}, 2, "missing COMMAND (see 'zelk-elf --help')"},
      {{"frob"}, 2, "unknown command 'frob' (see 'zelk-elf --help')"},
      {{"info", "$S", "--dot"},
       2,
       "info: The following argument was not expected: --dot (see "
       "'zelk-elf info --help')"},
      {{"cfg", "$S", "--json"},
       2,
       "cfg: The following argument was not expected: --json (see "
       "'zelk-elf cfg --help')"},
      {{"diff", "$S"}, 2, "diff: B is required (see 'zelk-elf diff --help')"},
      {{"sample"}, 2, "sample: -o is required (see 'zelk-elf sample --help')"},
      {{"sample", "-o"},
       2,
       "sample: -o: 1 required TEXT missing (see 'zelk-elf sample --help')"},
      {{"sample", "-o", ""},
       2,
       "sample: empty output file name for '-o' (see 'zelk-elf sample "
       "--help')"},
      {{"edit", "--new"}, 2, "edit: -o is required" + hint},
      {{"edit", "-o", "$O"}, 2, "edit: missing FILE (or --new)" + hint},
      {{"edit", "$S", "--new", "-o", "$O"},
       2,
       "edit: FILE excludes --new" + hint},
      {{"edit", "--new", "-o", "$O", "-o", "$O"},
       2,
       "edit: -o: At Most 1 required but received 2" + hint},
      {{"edit", "--new", "-o", "$O", "--verify-info"},
       2,
       "edit: --verify-info: 1 required VALUE missing" + hint},
      {{"edit", "--new", "-o", "$O", "--machine", "12a"},
       2,
       "edit: bad number '12a' for --machine" + number},
      {{"edit", "--new", "-o", "$O", "--type", "-1"},
       2,
       "edit: bad number '-1' for --type" + number},
      {{"edit", "--new", "-o", "$O", "--entry", "18446744073709551616"},
       2,
       "edit: bad number '18446744073709551616' for --entry" + number},
      // Quoted arguments with newlines still give one line.
      {{"edit", "--new", "-o", "$O", "--machine", "1\n2"},
       2,
       "edit: bad number '1\\n2' for --machine" + number},
      {{"edit", "--new", "-o", "$O", "--machine", "0x10000"},
       2,
       "edit: number '0x10000' for --machine is out of range (at most "
       "65535)" +
           hint},
      {{"edit", "--new", "-o", "$O", "--set-text", "00:0x100000000"},
       2,
       "edit: number '0x100000000' for the alignment of --set-text is out "
       "of range (at most 4294967295)" +
           hint},
      {{"edit", "--new", "-o", "$O", "--set-text", "abc"},
       2,
       "edit: bad data 'abc' for --set-text" + data},
      {{"edit", "--new", "-o", "$O", "--set-section", ".x=zz"},
       2,
       "edit: bad data 'zz' for --set-section" + data},
      {{"edit", "--new", "-o", "$O", "--set-section", ".x"},
       2,
       "edit: bad value '.x' for --set-section (NAME=DATA expected)" + hint},
      // The empty name is the null section's.
      {{"edit", "--new", "-o", "$O", "--set-section", "=00"},
       2,
       "edit: empty NAME in '=00' for --set-section" + hint},
  };
  for (const char* command : {"info", "debug", "cfg", "check"}) {
    const std::string c = command;
    const std::string see = " (see 'zelk-elf " + c + " --help')";
    cases.push_back({{c}, 2, c + ": FILE is required" + see});
    cases.push_back(
        {{c, "$S", "--bogus"},
         2,
         c + ": The following argument was not expected: --bogus" + see});
  }
  for (const ErrorCase& c : cases) expectFailure(c);
}

TEST_F(ErrorTest, UnreadableInputsAndUnwritableOutputs) {
  const std::string fifo = dir_.file("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(::symlink(fifo.c_str(), dir_.file("to-fifo").c_str()), 0);
  std::vector<ErrorCase> cases = {
      {{"edit", "$M", "-o", "$O"},
       1,
       "edit: cannot open '$M': No such file or directory"},
      {{"edit", "--new", "-o", "$O", "--set-text", "@$M"},
       1,
       "edit: cannot open '$M': No such file or directory"},
      {{"diff", "$S", "$M"},
       1,
       "diff: cannot open '$M': No such file or directory"},
      // An endless input ends at the limit.
      {{"check", "/dev/zero"},
       1,
       "check: cannot read '/dev/zero': larger than the 1 GiB limit of an input without a size"},
      {{"sample", "-o", "$D/no/dir/s.elf"},
       1,
       "sample: cannot write '$D/no/dir/s.elf': No such file or directory"},
      // What is not a regular file is never replaced, also behind a link.
      {{"sample", "-o", fifo},
       1,
       "sample: cannot write '" + fifo + "': not a regular file"},
      {{"edit", "$S", "-o", "$D/to-fifo"},
       1,
       "edit: cannot write '$D/to-fifo': not a regular file"},
      {{"edit", "$S", "-o", "$D"},
       1,
       "edit: cannot write '$D': not a regular file"},
  };
  for (const char* command : {"info", "debug", "cfg", "check"}) {
    const std::string c = command;
    cases.push_back(
        {{c, "$M"}, 1, c + ": cannot open '$M': No such file or directory"});
    cases.push_back({{c, "$D"}, 1, c + ": cannot read '$D': Is a directory"});
  }
  for (const ErrorCase& c : cases) expectFailure(c);
  struct stat info;
  ASSERT_EQ(::stat(fifo.c_str(), &info), 0);
  EXPECT_TRUE(S_ISFIFO(info.st_mode));
}

// Every command that reads an image refuses a bad one with the loader's
// reason.
TEST_F(ErrorTest, BadImages) {
  for (const BadImage& bad : kBadImages) {
    const std::string path = dir_.file(bad.name);
    if (bad.section == nullptr) {
      writeBytes(path,
                 std::vector<uint8_t>(bad.bytes.begin(), bad.bytes.end()));
    } else {
      ASSERT_EQ(runTool({"edit", "--new", "-o", path, "--set-section",
                         std::string(bad.section) + "=" + bad.section_hex})
                    .exit_code,
                0);
    }
    const std::string reason = "'" + path + "': " + bad.reason;
    for (const char* command : {"check", "info", "debug", "cfg"}) {
      expectFailure({{command, path}, 1, std::string(command) + ": " + reason});
    }
    expectFailure({{"edit", path, "-o", "$O"}, 1, "edit: " + reason});
    expectFailure({{"diff", "$S", path}, 1, "diff: " + reason});
  }
}

// A failed edit leaves an existing output file as it was.
TEST_F(ErrorTest, FailedEditKeepsTheOldOutput) {
  std::vector<uint8_t> old = {1, 2, 3};
  writeBytes(dir_.file("out.elf"), old);
  expectFailure({{"edit", "$S", "-o", "$O", "--machine", "x"},
                 2,
                 "edit: bad number 'x' for --machine (decimal or 0x hex "
                 "expected) (see 'zelk-elf edit --help')"});
  EXPECT_EQ(readBytes(dir_.file("out.elf")), old);
}

// Real and hostile images: every reading command either succeeds or
// refuses with one line and exit code 1; none crashes.
TEST(CorpusTest, ReadingCommandsNeverCrash) {
  std::vector<std::string> files = filesIn(sharedDir() + "/corpus/real");
  std::vector<std::string> hostile = filesIn(sharedDir() + "/corpus/hostile");
  files.insert(files.end(), hostile.begin(), hostile.end());
  ASSERT_GT(files.size(), 30u);
  for (const std::string& file : files) {
    for (std::vector<std::string> args :
         {std::vector<std::string>{"check", file},
          {"info", file},
          {"info", file, "--json"},
          {"debug", file, "--json"},
          {"cfg", file, "--dot"}}) {
      ToolResult result = runTool(args);
      SCOPED_TRACE(args[0] + " " + file);
      if (result.exit_code == 0) {
        EXPECT_EQ(result.err, "");
        EXPECT_FALSE(result.out.empty());
      } else {
        EXPECT_EQ(result.exit_code, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1)
            << result.err;
      }
    }
  }
}

}  // namespace
}  // namespace zelk_elf_test
