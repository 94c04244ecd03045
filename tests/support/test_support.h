// What the tests share: the shared corpus, bytes in hex, saving an object,
// an object with every debug field, and the check that an object is whole.
#ifndef ZELK_ELF_TESTS_SUPPORT_TEST_SUPPORT_H_
#define ZELK_ELF_TESTS_SUPPORT_TEST_SUPPORT_H_

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "absl/strings/escaping.h"
#include "absl/strings/str_split.h"
#include "absl/types/span.h"
#include "gtest/gtest.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace testing {

using Bytes = std::vector<uint8_t>;

inline std::string sharedPath(const std::string& relative) {
  return std::string(ZELK_ELF_SHARED_DIR) + "/" + relative;
}

// The whole file; empty when it cannot be read.
inline Bytes readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline Bytes readShared(const std::string& relative) { return readFile(sharedPath(relative)); }

// Paths of the regular files of a folder, sorted.
inline std::vector<std::string> listFiles(const std::string& dir) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (entry.is_regular_file()) paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

inline std::vector<std::string> listShared(const std::string& relative) {
  return listFiles(sharedPath(relative));
}

// "0a0b" -> {0x0a, 0x0b}; "EMPTY" -> {}.
inline Bytes hex(const std::string& digits) {
  const std::string bytes = digits == "EMPTY" ? "" : absl::HexStringToBytes(digits);
  return Bytes(bytes.begin(), bytes.end());
}

template <typename Range>
Bytes bytesOf(const Range& range) {
  return Bytes(range.begin(), range.end());
}

// The saved image; empty when saving fails.
inline Bytes saveBytes(ELF& elf) {
  absl::optional<ELF::Image> image = elf.save();
  return image ? Bytes(image->begin(), image->end()) : Bytes();
}

// All nine debug fields, text, comment lines and a raw section; long strings,
// and lists of one element (some free functions treat one apart).
inline ELF richELF() {
  ELF elf;
  elf.setMachine(0x5A4B);
  elf.setText(std::vector<uint8_t>(64, 0x90), 16);
  elf.setCommentInfo({"zelk compiler 4.1", "", "opt: -O2"});
  elf.setSection(".zelk.raw", std::vector<uint8_t>(24, 7));
  elf.dbgID = DebugInfoID{1, 7, 65535};
  elf.spillInfo = SpillInfo{{{0x100, 0, 5, "spill_slot_zero_with_a_long_name"}}};
  elf.swpInfo = SWPInfo{{{0x200}}};
  elf.cfgInfo =
      ControlFlowGraph{{std::make_tuple(BasicBlockRange{0, 12}, BasicBlockRange{16, 28})}};
  elf.srcInfo =
      SourceMap{{"main.zc", {"  x = compute_value(y); // line 1"}}, {"empty.zc", {}}};
  elf.symInfo =
      SymbolMap{{"main", SymbolAddr{1, 0x1000}}, {"helper_function_name", SymbolAddr{2, 0x2000}}};
  elf.pmSize = 0x8000;
  elf.setVerifyInfo("verified: 12 blocks, 3 loops, no hazards found");
  elf.latencyInfo = LatencyInfo{{{0x300, 1, 2, 3, 4, 5}}};
  return elf;
}

// `count` keys sharing one bucket of a symbol map reserved for `count`, as a
// decoder reserves it: found by trying names, as a flood would be built.
inline std::vector<std::string> crowdedKeys(size_t count) {
  SymbolMap probe;
  probe.reserve(count);
  std::vector<std::string> keys;
  for (int i = 0; keys.size() < count; ++i) {
    const std::string key = "k" + std::to_string(i);
    if (probe.bucket(key) == probe.bucket("k0")) keys.push_back(key);
  }
  return keys;
}

inline bool sameDebugInfo(const ELF& a, const ELF& b) {
  return a.dbgID == b.dbgID && a.spillInfo == b.spillInfo && a.swpInfo == b.swpInfo &&
         a.cfgInfo == b.cfgInfo && a.srcInfo == b.srcInfo && a.symInfo == b.symInfo &&
         a.pmSize == b.pmSize && a.verifyInfo == b.verifyInfo && a.latencyInfo == b.latencyInfo;
}

// The views are on the bytes of ".text" and the NUL-split lines of ".comment";
// every viewed byte is read, for the sanitizers.
inline void expectViewsConsistent(const ELF& elf) {
  volatile uint32_t sum = 0;
  if (elf.text) {
    for (uint8_t b : *elf.text) sum = sum + b;
    EXPECT_TRUE(*elf.text == elf.getSection(".text") &&
                elf.text->data() == elf.getSection(".text").data());
  }
  if (elf.commentInfo) {
    const absl::Span<const uint8_t> bytes = elf.getSection(".comment");
    const absl::string_view all(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const std::vector<absl::string_view> lines =
        bytes.empty() ? std::vector<absl::string_view>{} : absl::StrSplit(all, '\0');
    ASSERT_EQ(elf.commentInfo->size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
      for (char c : (*elf.commentInfo)[i]) sum = sum + c;
      EXPECT_TRUE((*elf.commentInfo)[i].data() == lines[i].data() &&
                  (*elf.commentInfo)[i] == lines[i])
          << i;
    }
  }
}

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_SUPPORT_TEST_SUPPORT_H_
