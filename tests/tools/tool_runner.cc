#include "tools/tool_runner.h"

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace zelk_elf_test {
namespace {

void removeTree(const std::string& path) {
  if (DIR* dir = ::opendir(path.c_str())) {
    while (dirent* entry = ::readdir(dir)) {
      std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      std::string child = path + "/" + name;
      struct stat info;
      if (::lstat(child.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
        removeTree(child);
      } else {
        ::unlink(child.c_str());
      }
    }
    ::closedir(dir);
  }
  ::rmdir(path.c_str());
}

}  // namespace

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base ? base : "/tmp") + "/zelk-cli-XXXXXX";
  if (::mkdtemp(&pattern[0]) == nullptr) {
    throw std::runtime_error("mkdtemp failed");
  }
  path_ = pattern;
}

TempDir::~TempDir() { removeTree(path_); }

std::vector<std::string> TempDir::list() const {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(path_.c_str())) {
    while (dirent* entry = ::readdir(dir)) {
      std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

ToolResult runTool(const std::vector<std::string>& args) {
  TempDir capture;
  std::string out_path = capture.file("stdout");
  std::string err_path = capture.file("stderr");

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out_path.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err_path.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);

  std::vector<std::string> argv_strings = {ZELK_ELF_TOOL};
  argv_strings.insert(argv_strings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& arg : argv_strings) argv.push_back(&arg[0]);
  argv.push_back(nullptr);

  pid_t pid;
  int spawned =
      posix_spawn(&pid, ZELK_ELF_TOOL, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::runtime_error("cannot start " ZELK_ELF_TOOL);

  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  ToolResult result;
  result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = readText(out_path);
  result.err = readText(err_path);
  return result;
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<uint8_t> readBytes(const std::string& path) {
  std::string text = readText(path);
  return std::vector<uint8_t>(text.begin(), text.end());
}

bool fileExists(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

std::string sharedDir() {
  const char* dir = std::getenv("ZELK_ELF_SHARED_DIR");
  return dir ? dir : ZELK_ELF_SHARED_DIR;
}

}  // namespace zelk_elf_test
