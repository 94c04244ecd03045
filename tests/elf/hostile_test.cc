// Damaged and hostile images: load either refuses them or gives an object
// that every operation can use. Run under the sanitizer build to catch
// out-of-bounds reads.
#include <string>
#include <vector>

#include "elf/elf_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using testing::bytesOf;
using testing::hexBytes;
using testing::listShared;
using testing::readShared;
using testing::saveBytes;

bool within(const void* begin, size_t size, absl::Span<const uint8_t> data) {
  const auto* p = static_cast<const uint8_t*>(begin);
  return size == 0 || (p >= data.begin() && p + size <= data.end());
}

// Addresses and alignments far beyond the input make saving produce images
// of that magnitude (correctly); such layouts are left to the engine's own
// tests so that these sweeps stay fast and small.
bool laysOutHuge(const ELF& elf) {
  constexpr uint64_t kLimit = uint64_t{1} << 24;
  const engine::Image& image = imageOf(elf);
  for (size_t i = 0; i < image.segments().size(); ++i) {
    const engine::SegmentHeader& h = image.segments()[i].header;
    if (h.vaddr > kLimit || h.align > kLimit || h.offset > kLimit ||
        h.memsz > kLimit || h.filesz > kLimit) {
      return true;
    }
  }
  for (size_t i = 0; i < image.sections().size(); ++i) {
    const engine::SectionHeader& h = image.sections()[i].header;
    if (h.addr > kLimit || h.addralign > kLimit || h.size > kLimit ||
        h.offset > kLimit) {
      return true;
    }
  }
  return false;
}

// Reads everything a caller can read, then edits and saves.
void exercise(ELF& elf) {
  for (const std::string& name : elf.getSectionNames()) {
    const absl::Span<const uint8_t> bytes = elf.getSection(name);
    volatile uint8_t sink = 0;
    for (uint8_t b : bytes) sink = sink ^ b;
    (void)sink;
    (void)elf.getSectionSize(name);
  }
  if (elf.text.has_value()) {
    EXPECT_TRUE(within(elf.text->data(), elf.text->size(),
                       elf.getSection(".text")));
  }
  if (elf.commentInfo.has_value()) {
    for (absl::string_view line : *elf.commentInfo) {
      EXPECT_TRUE(within(line.data(), line.size(), elf.getSection(".comment")));
    }
  }
  (void)elf.getTextAddr();
  (void)elf.getMachine();
  (void)elf.getEntry();
  if (laysOutHuge(elf)) return;

  const std::vector<uint8_t> saved = saveBytes(elf);
  if (!saved.empty()) {
    absl::optional<ELF> again = ELF::load(saved);
    if (again.has_value()) (void)again->getSectionNames();
  }
  elf.setSection(".zelk.dbg.pmsize", hexBytes("00100000"));
  elf.setText(hexBytes("0102030405060708"), 4);
  elf.setCommentInfo({"edited", "", "lines"});
  elf.pmSize = 1;
  (void)saveBytes(elf);
  if (elf.text.has_value()) {
    EXPECT_EQ(elf.text->size(), 8u);
  }
}

void loadAndExercise(absl::Span<const uint8_t> bytes) {
  absl::optional<ELF> elf = ELF::load(bytes);
  if (elf.has_value()) exercise(*elf);
}

TEST(HostileTest, HostileCorpusNeverCrashes) {
  for (const std::string& name : listShared("corpus/hostile")) {
    SCOPED_TRACE(name);
    loadAndExercise(readShared("corpus/hostile/" + name));
  }
}

TEST(HostileTest, RealCorpusLoadsAndSurvivesEdits) {
  for (const std::string& name : listShared("corpus/real")) {
    SCOPED_TRACE(name);
    absl::optional<ELF> elf = ELF::load(readShared("corpus/real/" + name));
    // Its headers are big-endian data marked little-endian: program headers
    // then claim ranges far beyond the file.
    EXPECT_EQ(elf.has_value(), name != "null_endianess_convertor");
    if (elf.has_value()) exercise(*elf);
  }
}

class TruncationTest : public ::testing::TestWithParam<std::string> {};

TEST_P(TruncationTest, EveryPrefix) {
  const std::vector<uint8_t> image = readShared("corpus/real/" + GetParam());
  ASSERT_FALSE(image.empty());
  size_t loaded = 0;
  for (size_t n = 0; n < image.size(); ++n) {
    absl::optional<ELF> elf = ELF::load(absl::MakeConstSpan(image.data(), n));
    if (!elf.has_value()) continue;
    ++loaded;
    exercise(*elf);
  }
  EXPECT_TRUE(ELF::load(image).has_value());
  RecordProperty("loaded_prefixes", static_cast<int>(loaded));
}

INSTANTIATE_TEST_SUITE_P(Images, TruncationTest,
                         ::testing::Values("asm", "hello_32.o", "hello_64.o",
                                           "test_ppc.o", "hello_32"),
                         [](const auto& info) {
                           std::string name = info.param;
                           for (char& c : name) {
                             if (c == '.') c = '_';
                           }
                           return name;
                         });

class CorruptionTest : public ::testing::TestWithParam<std::string> {};

TEST_P(CorruptionTest, EveryByteThreeWays) {
  const std::vector<uint8_t> image = readShared("corpus/real/" + GetParam());
  ASSERT_FALSE(image.empty());
  std::vector<uint8_t> damaged = image;
  for (size_t i = 0; i < image.size(); ++i) {
    for (uint8_t value : {uint8_t{0x00}, uint8_t{0xFF},
                          static_cast<uint8_t>(image[i] ^ 0x80)}) {
      damaged[i] = value;
      loadAndExercise(damaged);
    }
    damaged[i] = image[i];
  }
}

INSTANTIATE_TEST_SUITE_P(Images, CorruptionTest,
                         ::testing::Values("asm", "hello_32.o", "test_ppc.o"),
                         [](const auto& info) {
                           std::string name = info.param;
                           for (char& c : name) {
                             if (c == '.') c = '_';
                           }
                           return name;
                         });

// Damage inside the debug payloads reaches the decoders through load.
TEST(HostileTest, DamagedDebugSections) {
  ELF elf;
  elf.dbgID = DebugInfoID{1, 2, 3};
  elf.spillInfo = SpillInfo{{SpillLoc{16, 2, 1, "spill"}}};
  elf.swpInfo = SWPInfo{{SWPLoc{1}}};
  elf.cfgInfo = ControlFlowGraph{{{BasicBlockRange{1, 2}, BasicBlockRange{3, 4}}}};
  elf.srcInfo = SourceMap{{"main.c", {"a", "bb"}}};
  elf.symInfo = SymbolMap{{"main", SymbolAddr{2, 256}}};
  elf.pmSize = 4096;
  elf.setVerifyInfo("ok");
  elf.latencyInfo = LatencyInfo{{LatencyInfoLoc{16, 1, 1, 2, 3, 4}}};
  const std::vector<uint8_t> image = saveBytes(elf);
  ASSERT_FALSE(image.empty());
  ASSERT_TRUE(ELF::load(image).has_value());

  std::vector<uint8_t> damaged = image;
  for (size_t i = 0; i < image.size(); ++i) {
    for (uint8_t value : {uint8_t{0xFF}, static_cast<uint8_t>(image[i] + 1)}) {
      damaged[i] = value;
      loadAndExercise(damaged);
    }
    damaged[i] = image[i];
  }
  for (size_t n = 0; n < image.size(); ++n) {
    loadAndExercise(absl::MakeConstSpan(image.data(), n));
  }
}

}  // namespace
}  // namespace zelk_elf
