// Every way a command can fail: the exit code, the one line on stderr, no
// stdout, and no output file (temporary or final) left behind.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tools/tool_runner.h"

namespace zelk_elf_test {
namespace {

class ErrorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(runTool({"sample", "-o", sample_}).exit_code, 0);
  }

  // Runs `args`; expects failure with `code` and exactly `message` + "\n" on
  // stderr, nothing on stdout, and the directory unchanged.
  void expectFailure(const std::vector<std::string>& args, int code,
                     const std::string& message) {
    std::vector<std::string> before = dir_.list();
    ToolResult result = runTool(args);
    EXPECT_EQ(result.exit_code, code) << message;
    EXPECT_EQ(result.err, message + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(dir_.list(), before) << "files left behind for: " << message;
  }

  void expectUsage(const std::vector<std::string>& args,
                   const std::string& command, const std::string& what) {
    expectFailure(args, 2,
                  "zelk-elf: " + command + ": " + what + " (see 'zelk-elf " +
                      command + " --help')");
  }

  // An image holding one raw section with these hex bytes (no decoded value
  // is engaged, so save keeps the bytes as given).
  std::string imageWithSection(const std::string& name,
                               const std::string& hex) {
    std::string path = dir_.file("raw.elf");
    ToolResult made = runTool(
        {"edit", "--new", "-o", path, "--set-section", name + "=" + hex});
    EXPECT_EQ(made.exit_code, 0) << made.err;
    return path;
  }

  std::string writeFile(const std::string& name, const std::string& bytes) {
    std::string path = dir_.file(name);
    writeBytes(path, std::vector<uint8_t>(bytes.begin(), bytes.end()));
    return path;
  }

  TempDir dir_;
  std::string sample_ = dir_.file("sample.elf");
  std::string out_ = dir_.file("out.elf");
};

TEST_F(ErrorTest, CommandLevelUsage) {
  expectFailure({}, 2, "zelk-elf: missing COMMAND (see 'zelk-elf --help')");
  expectFailure({"frob"}, 2,
                "zelk-elf: unknown command 'frob' (see 'zelk-elf --help')");
}

TEST_F(ErrorTest, ReadingCommandsUsage) {
  for (const char* command : {"info", "debug", "cfg", "check"}) {
    expectUsage({command}, command, "missing FILE");
    expectUsage({command, sample_, "--bogus"}, command,
                "unknown option '--bogus'");
    expectUsage({command, sample_, sample_}, command,
                "unexpected argument '" + sample_ + "'");
  }
  expectUsage({"info", sample_, "--dot"}, "info", "unknown option '--dot'");
  expectUsage({"debug", sample_, "--dot"}, "debug", "unknown option '--dot'");
  expectUsage({"cfg", sample_, "--json"}, "cfg", "unknown option '--json'");
  expectUsage({"check", sample_, "--json"}, "check", "unknown option '--json'");
}

TEST_F(ErrorTest, SampleUsage) {
  expectUsage({"sample"}, "sample", "missing '-o FILE'");
  expectUsage({"sample", "-o"}, "sample", "option '-o' needs a value");
  expectUsage({"sample", "x.elf"}, "sample", "unexpected argument 'x.elf'");
  expectUsage({"sample", "--out", out_}, "sample", "unknown option '--out'");
  expectUsage({"sample", "-o", out_, "-o", out_}, "sample",
              "option '-o' given twice");
  expectUsage({"sample", "-o", ""}, "sample",
              "empty output file name for '-o'");
}

TEST_F(ErrorTest, EditUsage) {
  expectUsage({"edit", "--new"}, "edit", "missing '-o OUT'");
  expectUsage({"edit", "-o", out_}, "edit", "missing FILE (or --new)");
  expectUsage({"edit", sample_, "--new", "-o", out_}, "edit",
              "give either FILE or --new, not both");
  expectUsage({"edit", sample_, sample_, "-o", out_}, "edit",
              "unexpected argument '" + sample_ + "'");
  expectUsage({"edit", "--new", "-o", out_, "--set-data", "00"}, "edit",
              "unknown option '--set-data'");
  expectUsage({"edit", "--new", "-o", out_, "--verify-info"}, "edit",
              "option '--verify-info' needs a value");
  expectUsage({"edit", "--new", "-o", out_, "-o", out_}, "edit",
              "option '-o' given twice");
}

TEST_F(ErrorTest, EditBadNumbers) {
  const std::string hint = " (decimal or 0x hex expected)";
  expectUsage({"edit", "--new", "-o", out_, "--machine", "12a"}, "edit",
              "bad number '12a' for --machine" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--machine", "0x"}, "edit",
              "bad number '0x' for --machine" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--type", "-1"}, "edit",
              "bad number '-1' for --type" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--type", " 1"}, "edit",
              "bad number ' 1' for --type" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--entry", ""}, "edit",
              "bad number '' for --entry" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--entry", "18446744073709551616"},
              "edit", "bad number '18446744073709551616' for --entry" + hint);
  // Quoted arguments with newlines still give one line.
  expectUsage({"edit", "--new", "-o", out_, "--machine", "1\n2"}, "edit",
              "bad number '1\\n2' for --machine" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--machine", "0x10000"}, "edit",
              "number '0x10000' for --machine is out of range (at most 65535)");
  expectUsage({"edit", "--new", "-o", out_, "--type", "65536"}, "edit",
              "number '65536' for --type is out of range (at most 65535)");
  expectUsage({"edit", "--new", "-o", out_, "--set-text", "00:x"}, "edit",
              "bad number 'x' for the alignment of --set-text" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--set-text", "00:0x100000000"},
              "edit",
              "number '0x100000000' for the alignment of --set-text is out of "
              "range (at most 4294967295)");
}

TEST_F(ErrorTest, EditBadData) {
  const std::string hint = " (an even number of hex digits or @PATH expected)";
  expectUsage({"edit", "--new", "-o", out_, "--set-text", "abc"}, "edit",
              "bad data 'abc' for --set-text" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--set-section", ".x=zz"}, "edit",
              "bad data 'zz' for --set-section" + hint);
  expectUsage({"edit", "--new", "-o", out_, "--set-section", ".x"}, "edit",
              "bad value '.x' for --set-section (NAME=DATA expected)");
  std::string missing = dir_.file("missing.bin");
  expectFailure({"edit", "--new", "-o", out_, "--set-text", "@" + missing}, 1,
                "zelk-elf: edit: cannot open '" + missing +
                    "': No such file or directory");
}

TEST_F(ErrorTest, UnreadableInputs) {
  std::string missing = dir_.file("missing.elf");
  for (const char* command : {"info", "debug", "cfg", "check"}) {
    expectFailure({command, missing}, 1,
                  std::string("zelk-elf: ") + command + ": cannot open '" +
                      missing + "': No such file or directory");
    expectFailure({command, dir_.path()}, 1,
                  std::string("zelk-elf: ") + command + ": cannot read '" +
                      dir_.path() + "': Is a directory");
  }
  expectFailure({"edit", missing, "-o", out_}, 1,
                "zelk-elf: edit: cannot open '" + missing +
                    "': No such file or directory");
  if (::geteuid() != 0) {  // root reads everything
    std::string locked = writeFile("locked.elf", "x");
    ::chmod(locked.c_str(), 0);
    expectFailure(
        {"info", locked}, 1,
        "zelk-elf: info: cannot open '" + locked + "': Permission denied");
  }
}

TEST_F(ErrorTest, NotElfAndMalformedHeaders) {
  std::string text = writeFile("text.elf", "hello, this is not an image\n");
  std::string empty = writeFile("empty.elf", "");
  const std::string magic =
      "\x7f"
      "ELF";
  std::string shortIdent = writeFile("short.elf", magic + "\x01");
  std::string badClass =
      writeFile("class.elf", magic + "\x03\x01\x01" + std::string(57, '\0'));
  std::string badOrder =
      writeFile("order.elf", magic + "\x01\x03\x01" + std::string(57, '\0'));
  std::vector<uint8_t> sample = readBytes(sample_);
  std::string truncated = writeFile(
      "truncated.elf", std::string(sample.begin(), sample.begin() + 100));

  const std::string notElf = "': not an ELF image (no ELF magic number)";
  for (const char* command : {"info", "debug", "cfg", "check"}) {
    std::string prefix = std::string("zelk-elf: ") + command + ": '";
    expectFailure({command, text}, 1, prefix + text + notElf);
    expectFailure({command, empty}, 1, prefix + empty + notElf);
    expectFailure({command, shortIdent}, 1,
                  prefix + shortIdent + "': ELF identification cut short (5 of 16 bytes)");
    expectFailure({command, badClass}, 1, prefix + badClass + "': unknown ELF class 3");
    expectFailure({command, badOrder}, 1,
                  prefix + badOrder + "': unknown ELF byte order 3");
    expectFailure({command, truncated}, 1,
                  prefix + truncated +
                      "': section header table ends beyond the input (entry 0 at "
                      "0x1290), so the program headers cannot be read");
  }
  expectFailure({"edit", text, "-o", out_}, 1,
                "zelk-elf: edit: '" + text + notElf);
}

// check names the failing debug section and the payload offset; the other
// reading commands refuse such an image with the same reason.
TEST_F(ErrorTest, MalformedDebugSections) {
  struct Case {
    const char* section;
    const char* hex;
    const char* where;
  };
  const Case cases[] = {
      {".zelk.dbg.id", "", "payload is empty"},
      {".zelk.dbg.swp", "010000000200",
       "payload of 6 bytes ends inside an element at offset 4"},
      {".zelk.dbg.cfg", "0100000002000000030000000400000001",
       "payload of 17 bytes ends inside an element at offset 16"},
      {".zelk.dbg.src", "00000000000000",
       "payload of 7 bytes ends inside a value at offset 0"},
      {".zelk.dbg.sym", "", "payload is empty"},
      {".zelk.dbg.pmsize", "001000",
       "payload of 3 bytes ends inside a value at offset 0"},
      {".zelk.dbg.verifyinfo", "02000000000000",
       "payload of 7 bytes ends inside a value at offset 0"},
  };
  for (const Case& c : cases) {
    std::string image = imageWithSection(c.section, c.hex);
    std::string reason = std::string("': ") + c.section + ": " + c.where;
    for (const char* command : {"check", "info", "debug", "cfg"}) {
      expectFailure(
          {command, image}, 1,
          std::string("zelk-elf: ") + command + ": '" + image + reason);
    }
    expectFailure({"edit", image, "-o", out_}, 1,
                  "zelk-elf: edit: '" + image + reason);
  }
}

TEST_F(ErrorTest, UnwritableOutputs) {
  std::string nowhere = dir_.file("no/such/dir/out.elf");
  expectFailure({"sample", "-o", nowhere}, 1,
                "zelk-elf: sample: cannot write '" + nowhere +
                    "': No such file or directory");
  expectFailure({"edit", sample_, "-o", nowhere}, 1,
                "zelk-elf: edit: cannot write '" + nowhere +
                    "': No such file or directory");
}

// A failed edit leaves an existing output file as it was.
TEST_F(ErrorTest, FailedEditKeepsTheOldOutput) {
  std::vector<uint8_t> old = {1, 2, 3};
  writeBytes(out_, old);
  expectUsage({"edit", sample_, "-o", out_, "--machine", "x"}, "edit",
              "bad number 'x' for --machine (decimal or 0x hex expected)");
  EXPECT_EQ(readBytes(out_), old);
}

}  // namespace
}  // namespace zelk_elf_test

namespace zelk_elf_test {
namespace {

std::vector<std::string> corpusFiles(const std::string& folder) {
  std::vector<std::string> files;
  std::string dir = sharedDir() + "/corpus/" + folder;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* entry = ::readdir(d)) {
      std::string name = entry->d_name;
      if (name[0] != '.') files.push_back(dir + "/" + name);
    }
    ::closedir(d);
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Real and hostile images: every reading command either succeeds or
// refuses with one line and exit code 1; none crashes.
TEST(CorpusTest, ReadingCommandsNeverCrash) {
  std::vector<std::string> files = corpusFiles("real");
  std::vector<std::string> hostile = corpusFiles("hostile");
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
