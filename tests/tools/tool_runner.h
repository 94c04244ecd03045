// Runs the zelk-elf binary and captures what it prints, for end-to-end tests.
#ifndef ZELK_ELF_TESTS_TOOLS_TOOL_RUNNER_H_
#define ZELK_ELF_TESTS_TOOLS_TOOL_RUNNER_H_

#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "absl/strings/str_split.h"
#include "tool_launcher.h"

namespace zelk_elf_test {

namespace fs = std::filesystem;

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// A fresh folder, removed with its contents at destruction. Not to be copied.
struct TempDir {
  TempDir() { if (!::mkdtemp(&path[0])) throw std::runtime_error(path); }
  ~TempDir() { fs::remove_all(path); }
  std::string file(const std::string& name) const { return path + "/" + name; }
  std::string path = fs::temp_directory_path() / "zelk-XXXXXX";
};

struct ToolResult {
  int exit_code;  // -1 when the tool did not exit normally
  std::string out, err;
  // Bytes; under an emulator, the emulator's too. It counts what the test
  // held when it forked: measure with little held.
  uint64_t peak_rss;
};

// What the tool's process runs as: another user, a file-size limit (bytes).
struct ToolProcess {
  uid_t user = 0;  // 0: the test's own
  rlim_t file_size_limit = 0;  // 0: none
};

// Runs zelk-elf in folder `cwd` with the arguments `line` splits into at
// spaces (no shell), stdin from /dev/null, through the build's emulator
// when it has one.
inline ToolResult runTool(const std::string& line, const std::string& cwd,
                          ToolProcess process = {}) {
#if defined(__SANITIZE_ADDRESS__)
  // Freed blocks would wait in quarantine, resident: peak_rss is to count
  // the live ones.
  static const bool kNoQuarantine = [] {
    const char* options = std::getenv("ASAN_OPTIONS");
    return ::setenv("ASAN_OPTIONS",
                    (std::string(options ? options : "") + ":quarantine_size_mb=0").c_str(),
                    1) == 0;
  }();
  (void)kNoQuarantine;
#endif
  const TempDir capture;
  const std::string out = capture.file("out"), err = capture.file("err");
  std::vector<std::string> args = {ZELK_ELF_EMULATOR_ARGS ZELK_ELF_TOOL};
  for (absl::string_view arg : absl::StrSplit(line, ' ', absl::SkipEmpty())) {
    args.emplace_back(arg);
  }
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(&arg[0]);
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {  // only async-signal-safe calls from here
    if (::dup2(::open("/dev/null", O_RDONLY), 0) < 0 ||
        ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT, 0600), 1) < 0 ||
        ::dup2(::open(err.c_str(), O_WRONLY | O_CREAT, 0600), 2) < 0 ||
        ::chdir(cwd.c_str()) != 0) {
      ::_exit(126);
    }
    const rlimit size = {process.file_size_limit, process.file_size_limit};
    if ((process.file_size_limit != 0 && ::setrlimit(RLIMIT_FSIZE, &size) != 0) ||
        (process.user != 0 && (::setgroups(0, nullptr) != 0 || ::setgid(process.user) != 0 ||
                               ::setuid(process.user) != 0))) {
      ::_exit(126);
    }
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  int status = -1;  // not "exited" when the tool never started
  rusage usage{};
  if (pid > 0) ::wait4(pid, &status, 0, &usage);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err),
          static_cast<uint64_t>(usage.ru_maxrss) * 1024};
}

}  // namespace zelk_elf_test

#endif  // ZELK_ELF_TESTS_TOOLS_TOOL_RUNNER_H_
