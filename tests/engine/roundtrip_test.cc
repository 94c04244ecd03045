// Load, save and load again keeps what an image is made of, for the
// shared corpus and a sample of the machine's own ELF files; the saved
// images are also checked with readelf.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "engine/image.h"
#include "engine_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace engine {
namespace {

using namespace testing_util;

// Regular files of a folder, sorted by name.
std::vector<std::string> filesIn(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) names.push_back(e->d_name);
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  std::vector<std::string> out;
  for (const auto& n : names) {
    struct stat st;
    const std::string path = dir + "/" + n;
    if (n[0] != '.' && lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
      out.push_back(path);
    }
  }
  return out;
}

// Up to `limit` ELF files of at most 4 MiB from a system folder.
std::vector<std::string> systemSample(const std::string& dir, size_t limit) {
  std::vector<std::string> out;
  for (const auto& path : filesIn(dir)) {
    if (out.size() == limit) break;
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || st.st_size > (4 << 20)) continue;
    std::ifstream in(path, std::ios::binary);
    char magic[4] = {};
    if (in.read(magic, 4) && std::string(magic, 4) == "\x7f" "ELF") {
      out.push_back(path);
    }
  }
  return out;
}

void expectSameImage(const Image& a, const Image& b) {
  EXPECT_EQ(a.elfClass(), b.elfClass());
  EXPECT_EQ(a.encoding(), b.encoding());
  const FileHeader& ha = a.header();
  const FileHeader& hb = b.header();
  EXPECT_EQ(ha.ident, hb.ident);
  EXPECT_EQ(ha.type, hb.type);
  EXPECT_EQ(ha.machine, hb.machine);
  EXPECT_EQ(ha.version, hb.version);
  EXPECT_EQ(ha.entry, hb.entry);
  EXPECT_EQ(ha.flags, hb.flags);
  EXPECT_EQ(ha.shstrndx, hb.shstrndx);
  ASSERT_EQ(a.sections().size(), b.sections().size());
  for (size_t i = 0; i < a.sections().size(); ++i) {
    const Section& x = a.sections()[i];
    const Section& y = b.sections()[i];
    SCOPED_TRACE("section " + std::to_string(i) + " " + std::string(x.name));
    EXPECT_EQ(x.name, y.name);
    EXPECT_EQ(x.header.type, y.header.type);
    EXPECT_EQ(x.header.flags, y.header.flags);
    EXPECT_EQ(x.header.addr, y.header.addr);
    EXPECT_EQ(x.header.addralign, y.header.addralign);
    EXPECT_EQ(x.header.link, y.header.link);
    EXPECT_EQ(x.header.info, y.header.info);
    // A section cut short by the end of the input comes back with its
    // missing part as zeros.
    const auto xb = x.bytes(), yb = y.bytes();
    if (xb.size() < x.header.size && xb.size() < yb.size()) {
      EXPECT_TRUE(std::equal(xb.begin(), xb.end(), yb.begin()));
      EXPECT_TRUE(std::all_of(yb.begin() + xb.size(), yb.end(),
                              [](uint8_t v) { return v == 0; }));
    } else {
      EXPECT_TRUE(std::equal(xb.begin(), xb.end(), yb.begin(), yb.end()));
    }
  }
  ASSERT_EQ(a.segments().size(), b.segments().size());
  for (size_t i = 0; i < a.segments().size(); ++i) {
    const Segment& x = a.segments()[i];
    const Segment& y = b.segments()[i];
    SCOPED_TRACE("segment " + std::to_string(i));
    EXPECT_EQ(x.header.type, y.header.type);
    EXPECT_EQ(x.header.flags, y.header.flags);
    EXPECT_EQ(x.header.vaddr, y.header.vaddr);
    EXPECT_EQ(x.sections, y.sections);
  }
}

// The error and warning lines readelf prints for a file, without the file
// name, so input and output can be compared.
std::set<std::string> readelfComplaints(const std::string& path) {
  std::set<std::string> lines;
  const std::string command = "readelf -a -W '" + path + "' 2>&1 >/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return lines;
  std::array<char, 4096> buf;
  while (fgets(buf.data(), buf.size(), pipe) != nullptr) {
    std::string line(buf.data());
    if (line.find("readelf: Error") == std::string::npos &&
        line.find("readelf: Warning") == std::string::npos) {
      continue;
    }
    const size_t at = line.find(path);
    if (at != std::string::npos) line.erase(at, path.size());
    lines.insert(line);
  }
  pclose(pipe);
  return lines;
}

bool haveReadelf() { return std::system("readelf --version >/dev/null 2>&1") == 0; }

void roundTrip(const std::string& path, bool check_readelf) {
  SCOPED_TRACE(path);
  auto input = readFile(path);
  ASSERT_TRUE(input.has_value());
  Image first;
  if (!first.load(*input).ok()) return;  // refused inputs are covered elsewhere
  auto saved = saveBytes(first);
  if (!saved) return;  // layouts that cannot be saved report it
  Image second;
  ASSERT_TRUE(second.load(*saved).ok());
  Image original;
  ASSERT_TRUE(original.load(*input).ok());
  expectSameImage(original, second);
  auto resaved = saveBytes(second);
  ASSERT_TRUE(resaved.has_value());
  EXPECT_TRUE(*resaved == *saved) << "second save differs";

  if (!check_readelf) return;
  // ctest runs the round-trip tests in parallel processes.
  const std::string out = ::testing::TempDir() + "engine_roundtrip_" +
                          std::to_string(getpid()) + ".elf";
  {
    std::ofstream f(out, std::ios::binary);
    f.write(reinterpret_cast<const char*>(saved->data()), saved->size());
  }
  const std::set<std::string> before = readelfComplaints(path);
  for (const auto& line : readelfComplaints(out)) {
    EXPECT_TRUE(before.count(line)) << "new readelf complaint: " << line;
  }
  std::remove(out.c_str());
}

TEST(RoundTripTest, ReferenceCorpus) {
  const bool readelf = haveReadelf();
  size_t loaded = 0;
  for (const auto& path : filesIn(sharedDir() + "/corpus/real")) {
    roundTrip(path, readelf);
    auto bytes = readFile(path);
    Image image;
    loaded += bytes && image.load(*bytes).ok();
  }
  EXPECT_GE(loaded, 30u);
}

TEST(RoundTripTest, HostileCorpus) {
  for (const auto& path : filesIn(sharedDir() + "/corpus/hostile")) {
    roundTrip(path, false);
  }
}

TEST(RoundTripTest, SystemFiles) {
  const bool readelf = haveReadelf();
  for (const char* dir : {"/usr/bin", "/usr/lib/x86_64-linux-gnu",
                          "/usr/lib/i386-linux-gnu"}) {
    for (const auto& path : systemSample(dir, 40)) roundTrip(path, readelf);
  }
}

}  // namespace
}  // namespace engine
}  // namespace zelk_elf
