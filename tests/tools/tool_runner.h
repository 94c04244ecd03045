// Runs the zelk-elf binary and captures what it prints, for end-to-end tests.
#ifndef ZELK_ELF_TESTS_TOOLS_TOOL_RUNNER_H_
#define ZELK_ELF_TESTS_TOOLS_TOOL_RUNNER_H_

#include <cstdint>
#include <string>
#include <vector>

namespace zelk_elf_test {

struct ToolResult {
  int exit_code = -1;  // -1 when the tool did not exit normally
  std::string out;
  std::string err;
};

struct RunOptions {
  std::string stdin_path = "/dev/null";
  std::string cwd;  // empty: the test's own
  bool discard_stdout = false;
  // Address-space limit of the tool in bytes; 0 for none.
  uint64_t memory_limit = 0;
};

// Runs zelk-elf with `args` (no shell involved).
ToolResult runTool(const std::vector<std::string>& args,
                   const RunOptions& options = {});

// A fresh directory, removed with its contents at destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Names of the entries, sorted.
  std::vector<std::string> list() const;

 private:
  std::string path_;
};

std::string readText(const std::string& path);
std::vector<uint8_t> readBytes(const std::string& path);
bool fileExists(const std::string& path);
void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes);

// Folder of the shared corpus and conformance cases.
std::string sharedDir();
// Paths of the files in a folder, sorted; hidden ones left out.
std::vector<std::string> filesIn(const std::string& dir);

// A 32-bit image of `sections` sections (the null one and .shstrtab
// included) and `segments` loadable segments that each cover the whole file,
// so every segment lists every section but the null one.
std::vector<uint8_t> wideImage(uint16_t sections, uint16_t segments);

}  // namespace zelk_elf_test

#endif  // ZELK_ELF_TESTS_TOOLS_TOOL_RUNNER_H_
