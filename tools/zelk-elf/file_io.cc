// Inputs with an end, and outputs that never replace what is not a regular
// file.
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "absl/cleanup/cleanup.h"
#include "absl/status/statusor.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "elf/internal.h"
#include "engine/records.h"
#include "serialize/byte_view.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

// Inputs without a size (pipes, devices) are read up to this much; a
// regular file is read by its size, whatever that is.
constexpr size_t kMaxStreamedInput = size_t{1} << 30;

CliError failure(const char* verb, const std::string& path,
                 const char* reason = nullptr) {
  return imageError(absl::StrCat("cannot ", verb, " '", path, "': ",
                                 reason ? reason : std::strerror(errno)));
}

// Fills `buffer` up to its size or the input's end; keeps what was read.
void fill(int fd, const std::string& path, std::vector<uint8_t>& buffer) {
  size_t done = 0;
  while (done < buffer.size()) {
    ssize_t n = ::read(fd, buffer.data() + done, buffer.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw failure("read", path);
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  buffer.resize(done);
}

// The gABI's escape for tables too big for the header's 16-bit fields: with
// e_shnum 0 the section count is section 0's sh_size, with e_shstrndx
// SHN_XINDEX the name table's index its sh_link, with e_phnum PN_XNUM the
// program header count its sh_info. Says which an image of `bytes` uses
// (that loaded), or nothing.
std::string extendedNumbering(absl::Span<const uint8_t> bytes) {
  using engine::ByteView;
  const engine::RecordFormat& f = engine::recordFormat(bytes[4], bytes[5]);
  engine::FileHeader h;
  f.decodeFileHeader(ByteView(bytes.data(), f.file_header_size), &h);
  engine::SectionHeader first;
  const absl::optional<ByteView> entry =
      ByteView(bytes.data(), bytes.size()).slice(h.shoff, f.section_header_size);
  if (h.shoff == 0 || !entry) return "";
  f.decodeSectionHeader(*entry, &first);
  std::vector<std::string> uses;
  if (h.shnum == 0 && first.size != 0) {
    uses.push_back(absl::StrCat(first.size, " sections counted in section 0"));
  }
  if (h.shstrndx == 0xffff) {
    uses.push_back(absl::StrCat("the name table's index, ", first.link, ", in section 0"));
  }
  if (h.phnum == 0xffff) {
    uses.push_back(absl::StrCat(first.info, " program headers counted in section 0"));
  }
  if (uses.empty()) return "";
  return absl::StrCat("uses extended section numbering (", absl::StrJoin(uses, "; "), ")");
}

}  // namespace

std::vector<uint8_t> readInput(const std::string& path) {
  const int fd =
      path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw failure("open", path);
  absl::Cleanup close = [fd] {
    if (fd != STDIN_FILENO) ::close(fd);
  };
  struct stat info;
  if (::fstat(fd, &info) != 0) throw failure("read", path);
  if (S_ISDIR(info.st_mode)) throw failure("read", path, "Is a directory");
  // A regular file in one read of its size; anything else in chunks, so
  // nothing is copied while it grows.
  const bool regular = S_ISREG(info.st_mode);
  const size_t chunk = size_t{1} << 20;
  const char* const kTooLarge = "larger than the 1 GiB limit of an input without a size";
  if (regular && static_cast<uint64_t>(info.st_size) > SIZE_MAX) {
    throw failure("read", path, "too large for this machine's memory");
  }
  std::vector<std::vector<uint8_t>> chunks;
  size_t total = 0;
  do {
    chunks.emplace_back(regular ? static_cast<size_t>(info.st_size) : chunk);
    fill(fd, path, chunks.back());
    total += chunks.back().size();
    if (!regular && total > kMaxStreamedInput) throw failure("read", path, kTooLarge);
  } while (!regular && chunks.back().size() == chunk);
  if (chunks.size() == 1) return std::move(chunks[0]);
  std::vector<uint8_t> bytes;
  bytes.reserve(total);
  for (std::vector<uint8_t>& piece : chunks) {
    bytes.insert(bytes.end(), piece.begin(), piece.end());
    std::vector<uint8_t>().swap(piece);
  }
  return bytes;
}

ELF loadImage(const std::string& path, bool keep_going) {
  const std::vector<uint8_t> bytes = readInput(path);
  absl::StatusOr<ELF> elf = loadWithReason(bytes);
  if (!elf.ok()) {
    throw imageError(absl::StrCat("'", path, "': ", elf.status().message()));
  }
  if (!keep_going) {
    if (const std::string what = extendedNumbering(bytes); !what.empty()) {
      throw imageError(absl::StrCat("'", path, "': ", what,
                                    ", which this tool would lose; --force to go on"));
    }
  }
  return *std::move(elf);
}

void writeOutput(const std::string& path, absl::Span<const uint8_t> bytes) {
  if (path == "-") {
    std::cout.write(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<std::streamsize>(bytes.size()));
    if (!std::cout.flush()) throw imageError("cannot write to standard output");
    return;
  }
  // A link stays and its target is replaced (a link to nothing is not).
  char resolved[PATH_MAX];
  const std::string target =
      ::realpath(path.c_str(), resolved) ? resolved : path;
  struct stat info;
  const bool exists = ::stat(target.c_str(), &info) == 0;
  // A device, FIFO, socket or directory replaced by a regular file would
  // break whatever relies on it (as root, even /dev/null).
  if (exists && !S_ISREG(info.st_mode)) {
    throw failure("write", path, "not a regular file");
  }
  std::string temp = target + ".tmp-XXXXXX";
  const int fd = ::mkstemp(&temp[0]);
  if (fd < 0) throw failure("write", path);
  absl::Cleanup remove = [&temp] { ::unlink(temp.c_str()); };
  // The owner, group and mode of the file replaced, as cp -p keeps them, or
  // the mode of a plain create. Owner first: changing it clears the set-id
  // bits. Where the owner cannot be kept (only root may give a file away),
  // the set-id bits go: they would lend the writer's identity to whoever
  // runs the program.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  mode_t mode = 0666 & ~mask;
  if (exists) {
    mode = info.st_mode & 07777;
    if (::fchown(fd, info.st_uid, info.st_gid) != 0) mode &= ~mode_t{S_ISUID | S_ISGID};
  }
  bool ok = ::fchmod(fd, mode) == 0;
  for (size_t done = 0; ok && done < bytes.size();) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    ok = n >= 0 || errno == EINTR;
    done += n > 0 ? static_cast<size_t>(n) : 0;
  }
  // On disk before it takes OUT's name, so a crash leaves the old OUT or the
  // new one, never an empty one. close() reports deferred write errors.
  ok = ok && ::fsync(fd) == 0;
  ok = ::close(fd) == 0 && ok;
  if (!ok || ::rename(temp.c_str(), target.c_str()) != 0) {
    throw failure("write", path);
  }
  std::move(remove).Cancel();
}

}  // namespace cli
}  // namespace zelk_elf
