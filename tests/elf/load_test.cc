// ELF::load: refusals, comment lines, the text view and the debug sections.
#include <string>
#include <vector>

#include "elf/elf_test_util.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using ::testing::ElementsAre;
using testing::bytesOf;
using testing::hexBytes;
using testing::linesOf;
using testing::loadWithSection;
using testing::readShared;
using testing::saveBytes;

TEST(LoadRefusalTest, ShortInputsAndWrongMagic) {
  EXPECT_FALSE(ELF::load({}).has_value());
  const std::vector<uint8_t> image = readShared("corpus/real/hello_32");
  ASSERT_GT(image.size(), 52u);
  for (size_t n = 0; n < 16; ++n) {
    EXPECT_FALSE(ELF::load(absl::MakeConstSpan(image.data(), n)).has_value())
        << n;
  }
  std::vector<uint8_t> bad = image;
  bad[1] = 'e';
  EXPECT_FALSE(ELF::load(bad).has_value());
  EXPECT_FALSE(ELF::load(std::vector<uint8_t>(64, 0)).has_value());
}

TEST(LoadTest, AnyClassAndByteOrderLoads) {
  absl::optional<ELF> x86_64 = ELF::load(readShared("corpus/real/hello_64"));
  ASSERT_TRUE(x86_64.has_value());
  EXPECT_EQ(imageOf(*x86_64).elfClass(), engine::kClass64);
  EXPECT_EQ(x86_64->getMachine(), 62);

  absl::optional<ELF> ppc = ELF::load(readShared("corpus/real/test_ppc"));
  ASSERT_TRUE(ppc.has_value());
  EXPECT_EQ(imageOf(*ppc).encoding(), engine::kDataMsb);
  EXPECT_EQ(ppc->getMachine(), 20);
  ASSERT_TRUE(ppc->text.has_value());
  EXPECT_EQ(bytesOf(*ppc->text), bytesOf(ppc->getSection(".text")));
}

TEST(LoadTest, PlainImageLeavesEveryOptionalFieldEmpty) {
  ELF fresh;
  absl::optional<ELF> elf = ELF::load(saveBytes(fresh));
  ASSERT_TRUE(elf.has_value());
  EXPECT_THAT(elf->getSectionNames(), ElementsAre("", ".shstrtab"));
  EXPECT_FALSE(elf->dbgID || elf->spillInfo || elf->swpInfo || elf->cfgInfo ||
               elf->srcInfo || elf->symInfo || elf->pmSize ||
               elf->verifyInfo || elf->latencyInfo || elf->commentInfo ||
               elf->text);
}

TEST(LoadTest, InputBufferMayChangeAfterLoad) {
  std::vector<uint8_t> bytes = readShared("corpus/real/hello_32");
  absl::optional<ELF> elf = ELF::load(bytes);
  ASSERT_TRUE(elf.has_value());
  const std::vector<uint8_t> text = bytesOf(*elf->text);
  const std::vector<std::string> names = elf->getSectionNames();
  std::fill(bytes.begin(), bytes.end(), 0xAA);
  bytes.clear();
  bytes.shrink_to_fit();
  EXPECT_EQ(bytesOf(*elf->text), text);
  EXPECT_EQ(elf->getSectionNames(), names);
}

struct CommentCase {
  std::string data;
  std::vector<std::string> lines;
};

class CommentLinesTest : public ::testing::TestWithParam<CommentCase> {};

TEST_P(CommentLinesTest, SplitsAtEveryNul) {
  absl::optional<ELF> elf =
      loadWithSection(".comment", bytesOf(GetParam().data));
  ASSERT_TRUE(elf.has_value());
  ASSERT_TRUE(elf->commentInfo.has_value());
  EXPECT_EQ(linesOf(*elf->commentInfo), GetParam().lines);
  // Views into the section's own bytes, not copies.
  const absl::Span<const uint8_t> data = elf->getSection(".comment");
  for (absl::string_view line : *elf->commentInfo) {
    EXPECT_GE(reinterpret_cast<const uint8_t*>(line.data()), data.begin());
    EXPECT_LE(reinterpret_cast<const uint8_t*>(line.data() + line.size()),
              data.end());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, CommentLinesTest,
    ::testing::Values(
        CommentCase{std::string("ab\0cd\0", 6), {"ab", "cd", ""}},
        CommentCase{std::string("a\0\0b", 4), {"a", "", "b"}},
        CommentCase{"abc", {"abc"}},
        CommentCase{std::string("\0", 1), {"", ""}}));

TEST(LoadTest, EmptyCommentSectionLeavesCommentInfoAbsent) {
  absl::optional<ELF> elf = loadWithSection(".comment", {});
  ASSERT_TRUE(elf.has_value());
  EXPECT_TRUE(elf->hasSection(".comment"));
  EXPECT_FALSE(elf->commentInfo.has_value());
}

TEST(LoadTest, LinesWrittenBySetCommentInfoReadBackWithoutEmptyOnes) {
  ELF elf;
  elf.setCommentInfo({"a", "", "b"});
  absl::optional<ELF> loaded = ELF::load(saveBytes(elf));
  ASSERT_TRUE(loaded.has_value());
  EXPECT_THAT(linesOf(*loaded->commentInfo), ElementsAre("a", "b", ""));
}

TEST(LoadTest, EmptyOrNobitsTextGivesEngagedEmptySpan) {
  absl::optional<ELF> empty = loadWithSection(".text", {});
  ASSERT_TRUE(empty.has_value());
  ASSERT_TRUE(empty->text.has_value());
  EXPECT_TRUE(empty->text->empty());

  ELF elf;
  engine::Section& text = imageOf(elf).addSection(".text");
  text.header.type = engine::kShtNobits;
  text.header.size = 64;
  absl::optional<ELF> nobits = ELF::load(saveBytes(elf));
  ASSERT_TRUE(nobits.has_value());
  ASSERT_TRUE(nobits->text.has_value());
  EXPECT_TRUE(nobits->text->empty());
  EXPECT_EQ(nobits->getSectionSize(".text"), 64u);
}

TEST(LoadTest, FirstOfTwoSameNamedSectionsIsUsed) {
  ELF elf;
  testing::addProgbits(elf, ".comment", "first");
  testing::addProgbits(elf, ".comment", "second");
  testing::addProgbits(elf, ".text", "T1");
  testing::addProgbits(elf, ".text", "T22");
  absl::optional<ELF> loaded = ELF::load(saveBytes(elf));
  ASSERT_TRUE(loaded.has_value());
  EXPECT_THAT(linesOf(*loaded->commentInfo), ElementsAre("first"));
  EXPECT_EQ(bytesOf(*loaded->text), bytesOf("T1"));
}

// The debug sections as loading sees them.
TEST(LoadDebugSectionsTest, PmSizeAloneFillsOnlyPmSize) {
  absl::optional<ELF> elf =
      loadWithSection(".zelk.dbg.pmsize", hexBytes("00100000"));
  ASSERT_TRUE(elf.has_value());
  EXPECT_EQ(elf->pmSize, 4096u);
  EXPECT_FALSE(elf->dbgID || elf->spillInfo || elf->swpInfo || elf->cfgInfo ||
               elf->srcInfo || elf->symInfo || elf->verifyInfo ||
               elf->latencyInfo);

  EXPECT_FALSE(
      loadWithSection(".zelk.dbg.pmsize", hexBytes("001000")).has_value());
  absl::optional<ELF> long_one =
      loadWithSection(".zelk.dbg.pmsize", hexBytes("78563412ffffffff"));
  ASSERT_TRUE(long_one.has_value());
  EXPECT_EQ(long_one->pmSize, 0x12345678u);
}

TEST(LoadDebugSectionsTest, EmptyPayloads) {
  absl::optional<ELF> spill = loadWithSection(".zelk.dbg.spill", {});
  ASSERT_TRUE(spill.has_value());
  ASSERT_TRUE(spill->spillInfo.has_value());
  EXPECT_TRUE(spill->spillInfo->locs.empty());

  EXPECT_FALSE(loadWithSection(".zelk.dbg.id", {}).has_value());

  absl::optional<ELF> verify =
      loadWithSection(".zelk.dbg.verifyinfo", hexBytes("0000000000000000"));
  ASSERT_TRUE(verify.has_value());
  EXPECT_EQ(verify->verifyInfo, std::string());
  EXPECT_FALSE(loadWithSection(".zelk.dbg.verifyinfo",
                               hexBytes("05000000000000006f6b"))
                   .has_value());
}

TEST(LoadDebugSectionsTest, OneMalformedSectionFailsTheLoad) {
  ELF elf;
  elf.setSection(".zelk.dbg.id", hexBytes("0102000300"));
  elf.setSection(".zelk.dbg.swp", hexBytes("010000000200"));
  EXPECT_FALSE(ELF::load(saveBytes(elf)).has_value());
}

TEST(LoadDebugSectionsTest, OnlyTheFirstSectionOfANameIsDecoded) {
  ELF elf;
  elf.setSection(".zelk.dbg.pmsize", hexBytes("40000000"));
  imageOf(elf).addSection(".zelk.dbg.pmsize");  // empty: would be refused
  absl::optional<ELF> loaded = ELF::load(saveBytes(elf));
  ASSERT_TRUE(loaded.has_value());
  EXPECT_EQ(loaded->pmSize, 64u);
}

}  // namespace
}  // namespace zelk_elf
