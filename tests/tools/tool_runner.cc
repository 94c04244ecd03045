#include "tools/tool_runner.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
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
  for (const std::string& path : filesIn(path_)) {
    names.push_back(path.substr(path_.size() + 1));
  }
  return names;
}

std::vector<std::string> filesIn(const std::string& dir) {
  std::vector<std::string> files;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* entry = ::readdir(d)) {
      if (entry->d_name[0] != '.') files.push_back(dir + "/" + entry->d_name);
    }
    ::closedir(d);
  }
  std::sort(files.begin(), files.end());
  return files;
}

ToolResult runTool(const std::vector<std::string>& args,
                   const RunOptions& options) {
  TempDir capture;
  const std::string out_path =
      options.discard_stdout ? "/dev/null" : capture.file("stdout");
  const std::string err_path = capture.file("stderr");
  std::vector<std::string> argv_strings = {ZELK_ELF_TOOL};
  argv_strings.insert(argv_strings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& arg : argv_strings) argv.push_back(&arg[0]);
  argv.push_back(nullptr);

  pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("cannot start " ZELK_ELF_TOOL);
  if (pid == 0) {  // only async-signal-safe calls from here
    const auto redirect = [](const char* path, int flags, int fd) {
      int opened = ::open(path, flags, 0644);
      if (opened < 0 || ::dup2(opened, fd) < 0) ::_exit(126);
      ::close(opened);
    };
    redirect(options.stdin_path.c_str(), O_RDONLY, 0);
    redirect(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 1);
    redirect(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 2);
    if (!options.cwd.empty() && ::chdir(options.cwd.c_str()) != 0) ::_exit(126);
    if (options.memory_limit != 0) {
      const auto bytes = static_cast<rlim_t>(options.memory_limit);
      struct rlimit limit = {bytes, bytes};
      if (::setrlimit(RLIMIT_AS, &limit) != 0) ::_exit(126);
    }
    ::execv(ZELK_ELF_TOOL, argv.data());
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  ToolResult result;
  result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (!options.discard_stdout) result.out = readText(out_path);
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

std::vector<uint8_t> wideImage(uint16_t sections, uint16_t segments) {
  std::vector<uint8_t> image;
  const auto put = [&image](std::initializer_list<uint32_t> values,
                            size_t width) {
    for (uint32_t value : values) {
      for (size_t i = 0; i < width; ++i) image.push_back(value >> (8 * i));
    }
  };
  const char names[] = "\0.shstrtab\0s";  // and the final NUL
  const uint32_t phoff = 52;
  const uint32_t names_offset = phoff + 32u * segments;
  const uint32_t shoff = (names_offset + sizeof names + 3) & ~3u;
  const uint32_t size = shoff + 40u * sections;
  image = {0x7f, 'E', 'L', 'F', 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  put({2, 0x5a4b}, 2);              // e_type, e_machine
  put({1, 0, phoff, shoff, 0}, 4);  // e_version .. e_flags
  put({52, 32, segments, 40, sections, 1}, 2);
  for (uint16_t i = 0; i < segments; ++i) {
    put({1, 0, 0, 0, size, size, 5, 4}, 4);  // PT_LOAD over the whole file
  }
  image.insert(image.end(), names, names + sizeof names);
  image.resize(shoff, 0);
  put({0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 4);
  put({1, 3, 0, 0, names_offset, sizeof names, 0, 0, 1, 0}, 4);
  for (uint16_t i = 2; i < sections; ++i) {
    put({11, 1, 0, 0, names_offset, 1, 0, 0, 1, 0}, 4);  // "s", one byte
  }
  return image;
}

std::string sharedDir() {
  const char* dir = std::getenv("ZELK_ELF_SHARED_DIR");
  return dir ? dir : ZELK_ELF_SHARED_DIR;
}

}  // namespace zelk_elf_test
