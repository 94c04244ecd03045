#include "tools/zelk-elf/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "absl/strings/str_cat.h"
#include "tools/zelk-elf/cli_error.h"

namespace zelk_elf {
namespace cli {
namespace {

std::string errnoText() { return std::strerror(errno); }

// Closes the descriptor it owns.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }
  // Closes now, reporting the result (a deferred write error shows here).
  bool close() {
    int fd = fd_;
    fd_ = -1;
    return ::close(fd) == 0;
  }

 private:
  int fd_;
};

// Removes the temporary file unless the rename succeeded.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  void release() { path_.clear(); }

 private:
  std::string path_;
};

}  // namespace

std::vector<uint8_t> readFile(const std::string& path) {
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    throw imageError(absl::StrCat("cannot open '", path, "': ", errnoText()));
  }
  struct stat info;
  if (::fstat(fd.get(), &info) != 0) {
    throw imageError(absl::StrCat("cannot read '", path, "': ", errnoText()));
  }
  if (S_ISDIR(info.st_mode)) {
    throw imageError(absl::StrCat("cannot read '", path, "': Is a directory"));
  }
  std::vector<uint8_t> bytes;
  uint8_t buffer[1 << 16];
  for (;;) {
    ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw imageError(absl::StrCat("cannot read '", path, "': ", errnoText()));
    }
    if (n == 0) break;
    bytes.insert(bytes.end(), buffer, buffer + n);
  }
  return bytes;
}

void writeFileAtomically(const std::string& path,
                         absl::Span<const uint8_t> bytes) {
  std::string temp_path = path + ".tmp-XXXXXX";
  FileDescriptor fd(::mkstemp(&temp_path[0]));
  if (fd.get() < 0) {
    throw imageError(absl::StrCat("cannot write '", path, "': ", errnoText()));
  }
  TemporaryFile temp(temp_path);
  // mkstemp makes the file private; give it the mode a plain create would.
  mode_t mask = ::umask(0);
  ::umask(mask);
  const auto fail = [&path]() {
    return imageError(absl::StrCat("cannot write '", path, "': ", errnoText()));
  };
  if (::fchmod(fd.get(), 0666 & ~mask) != 0) throw fail();
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd.get(), bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw fail();
    }
    done += static_cast<size_t>(n);
  }
  if (!fd.close()) throw fail();
  if (::rename(temp_path.c_str(), path.c_str()) != 0) throw fail();
  temp.release();
}

}  // namespace cli
}  // namespace zelk_elf
