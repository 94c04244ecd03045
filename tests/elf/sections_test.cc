// Raw section access by name.
#include <string>
#include <vector>

#include "absl/strings/str_split.h"
#include "elf/elf_test_util.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using ::testing::ElementsAre;
using testing::addProgbits;
using testing::bytesOf;
using testing::hexBytes;
using testing::linesOf;
using testing::readShared;
using testing::reload;
using testing::saveBytes;

TEST(SectionsTest, SameNameActsOnLowerIndex) {
  ELF elf;
  addProgbits(elf, "dup", "lower");
  addProgbits(elf, "dup", "higher!");
  elf = reload(elf);
  EXPECT_THAT(elf.getSectionNames(), ElementsAre("", ".shstrtab", "dup", "dup"));
  EXPECT_TRUE(elf.hasSection("dup"));
  EXPECT_EQ(bytesOf(elf.getSection("dup")), bytesOf("lower"));
  EXPECT_EQ(elf.getSectionSize("dup"), 5u);

  elf.setSection("dup", bytesOf("new"));
  EXPECT_EQ(bytesOf(imageOf(elf).sections()[2].bytes()), bytesOf("new"));
  EXPECT_EQ(bytesOf(imageOf(elf).sections()[3].bytes()), bytesOf("higher!"));
}

TEST(SectionsTest, EmptyNameFindsTheNullSection) {
  ELF elf;
  EXPECT_TRUE(elf.hasSection(""));
  absl::optional<ELF> loaded = ELF::load(readShared("corpus/real/hello_32"));
  ASSERT_TRUE(loaded.has_value());
  EXPECT_TRUE(loaded->hasSection(""));
  EXPECT_EQ(loaded->getSectionSize(""), 0u);
  EXPECT_TRUE(loaded->getSection("").empty());
}

TEST(SectionsTest, MissingSection) {
  ELF elf;
  EXPECT_FALSE(elf.hasSection(".text"));
  EXPECT_EQ(elf.getSection(".text").data(), nullptr);
  EXPECT_EQ(elf.getSection(".text").size(), 0u);
  EXPECT_EQ(elf.getSectionSize(".text"), 0u);
  EXPECT_FALSE(elf.hasSection(".SHSTRTAB"));  // no case folding
  EXPECT_FALSE(elf.hasSection(".shstrta"));   // no prefix match
}

TEST(SectionsTest, NobitsHoldsNothingButRecordsItsSize) {
  ELF elf;
  engine::Section& bss = imageOf(elf).addSection(".bss");
  bss.header.type = engine::kShtNobits;
  bss.header.size = 4096;
  elf = reload(elf);
  EXPECT_TRUE(elf.getSection(".bss").empty());
  EXPECT_EQ(elf.getSectionSize(".bss"), 4096u);

  elf.setSection(".bss", hexBytes("0102"));
  const engine::Section& now = *imageOf(elf).findSection(".bss");
  EXPECT_EQ(now.header.type, engine::kShtProgbits);
  EXPECT_EQ(bytesOf(elf.getSection(".bss")), hexBytes("0102"));
  EXPECT_EQ(elf.getSectionSize(".bss"), 2u);
}

TEST(SectionsTest, SetSectionCreatesAndCopies) {
  ELF elf;
  std::vector<uint8_t> data = hexBytes("deadbeef00");
  elf.setSection("x", data);
  EXPECT_THAT(elf.getSectionNames(), ElementsAre("", ".shstrtab", "x"));
  EXPECT_TRUE(elf.hasSection("x"));
  EXPECT_NE(elf.getSection("x").data(), data.data());
  data[0] = 0;
  EXPECT_EQ(bytesOf(elf.getSection("x")), hexBytes("deadbeef00"));
  EXPECT_EQ(elf.getSectionSize("x"), 5u);

  const engine::Section& x = *imageOf(elf).findSection("x");
  EXPECT_EQ(x.header.type, engine::kShtProgbits);
  EXPECT_EQ(x.header.addralign, 1u);
  EXPECT_EQ(x.header.flags, 0u);
  EXPECT_EQ(x.header.addr, 0u);
}

TEST(SectionsTest, SetSectionKeepsOtherAttributesOfExistingSection) {
  ELF elf;
  engine::Section& data = addProgbits(elf, ".data", "abcd");
  data.header.flags = engine::kShfAlloc | engine::kShfWrite;
  data.header.addr = 0x2000;
  data.header.addralign = 16;
  data.header.entsize = 4;
  data.header.link = 1;
  data.header.info = 2;
  elf.setSection(".data", hexBytes("01"));
  EXPECT_EQ(data.header.flags, engine::kShfAlloc | engine::kShfWrite);
  EXPECT_EQ(data.header.addr, 0x2000u);
  EXPECT_EQ(data.header.addralign, 1u);
  EXPECT_EQ(data.header.entsize, 4u);
  EXPECT_EQ(data.header.link, 1u);
  EXPECT_EQ(data.header.info, 2u);
  EXPECT_EQ(&data, &imageOf(elf).sections()[2]);
}

TEST(SectionsTest, EmptyContentsWithOrWithoutPointer) {
  ELF elf;
  elf.setSection("a", bytesOf("xyz"));
  elf.setSection("a", absl::Span<const uint8_t>());
  EXPECT_TRUE(elf.getSection("a").empty());
  EXPECT_EQ(elf.getSectionSize("a"), 0u);

  const uint8_t byte = 7;
  elf.setSection("b", bytesOf("xyz"));
  elf.setSection("b", absl::MakeConstSpan(&byte, 0));
  EXPECT_TRUE(elf.getSection("b").empty());
  EXPECT_EQ(elf.getSectionSize("b"), 0u);
}

TEST(SectionsTest, SetSectionRepointsTextAndCommentViews) {
  ELF elf;
  elf.setSection(".text", hexBytes("0102"));
  ASSERT_TRUE(elf.text.has_value());
  EXPECT_EQ(bytesOf(*elf.text), hexBytes("0102"));
  EXPECT_EQ(elf.text->data(), elf.getSection(".text").data());

  elf.setSection(".comment", {});
  ASSERT_TRUE(elf.commentInfo.has_value());
  EXPECT_TRUE(elf.commentInfo->empty());
  elf.setSection(".comment", bytesOf(std::string("p\0q", 3)));
  EXPECT_THAT(linesOf(*elf.commentInfo), ElementsAre("p", "q"));
}

TEST(SectionsTest, DebugSectionBytesDoNotChangeDecodedFields) {
  ELF elf;
  elf.pmSize = 64;
  elf.setSection(".zelk.dbg.pmsize", hexBytes("00100000"));
  EXPECT_EQ(elf.pmSize, 64u);
  EXPECT_EQ(bytesOf(elf.getSection(".zelk.dbg.pmsize")), hexBytes("00100000"));
  ASSERT_FALSE(saveBytes(elf).empty());
  // Saving writes the section again from the decoded value.
  EXPECT_EQ(bytesOf(elf.getSection(".zelk.dbg.pmsize")), hexBytes("40000000"));
}

// An image whose section-name table is its ".comment": adding a section
// appends to the bytes the comment lines view.
TEST(SectionsTest, ViewsFollowANameTableThatIsAlsoTheComment) {
  ELF elf;
  // The same bytes as .shstrtab, so names resolve alike from either table.
  const std::string names("\0.shstrtab\0.comment\0", 20);
  elf.setSection(".comment", bytesOf(names));
  std::vector<uint8_t> bytes = saveBytes(elf);
  ASSERT_EQ(bytesOf(elf.getSection(".shstrtab")), bytesOf(names));
  testing::writeLE(bytes, 50, 2, 2);  // e_shstrndx := .comment
  absl::optional<ELF> loaded = ELF::load(bytes);
  ASSERT_TRUE(loaded.has_value());
  ASSERT_TRUE(loaded->commentInfo.has_value());
  EXPECT_THAT(loaded->getSectionNames(),
              ElementsAre("", ".shstrtab", ".comment"));

  loaded->setSection("new", hexBytes("01"));
  loaded->setText(hexBytes("02"), 1);
  ASSERT_FALSE(saveBytes(*loaded).empty());
  const absl::Span<const uint8_t> comment = loaded->getSection(".comment");
  std::vector<std::string> expected;
  for (absl::string_view line : absl::StrSplit(
           absl::string_view(reinterpret_cast<const char*>(comment.data()),
                             comment.size()),
           '\0')) {
    expected.push_back(std::string(line));
  }
  EXPECT_EQ(linesOf(*loaded->commentInfo), expected);
  EXPECT_THAT(expected, ::testing::Contains("new"));
  EXPECT_EQ(loaded->commentInfo->front().data(),
            reinterpret_cast<const char*>(comment.data()));
}

}  // namespace
}  // namespace zelk_elf
