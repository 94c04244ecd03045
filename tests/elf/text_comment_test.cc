// setText, getTextAddr and setCommentInfo.
#include <string>
#include <vector>

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

TEST(SetTextTest, NewImageGainsTextSectionAndLoadSegment) {
  ELF elf;
  const std::vector<uint8_t> code = hexBytes("0102030405060708");
  elf.setText(code, 4);

  const engine::Image& image = imageOf(elf);
  ASSERT_EQ(image.sections().size(), 3u);
  const engine::Section& text = image.sections()[2];
  EXPECT_EQ(text.name, ".text");
  EXPECT_EQ(text.header.type, engine::kShtProgbits);
  EXPECT_EQ(text.header.flags, engine::kShfAlloc | engine::kShfExecInstr);
  EXPECT_EQ(text.header.size, 8u);
  EXPECT_EQ(text.header.addralign, 4u);

  ASSERT_EQ(image.segments().size(), 1u);
  const engine::Segment& segment = image.segments()[0];
  EXPECT_EQ(segment.header.type, engine::kPtLoad);
  EXPECT_EQ(segment.header.flags, engine::kPfR | engine::kPfX);
  EXPECT_EQ(segment.header.vaddr, 0u);
  EXPECT_EQ(segment.header.paddr, 0u);
  EXPECT_EQ(segment.header.align, 0x1000u);
  EXPECT_THAT(segment.sections.toVector(), ElementsAre(2));

  ASSERT_TRUE(elf.text.has_value());
  EXPECT_EQ(bytesOf(*elf.text), code);
  EXPECT_EQ(elf.text->data(), text.bytes().data());
  EXPECT_EQ(elf.getTextAddr(), 0u);
}

TEST(SetTextTest, SecondCallReplacesDataOnly) {
  ELF elf;
  elf.setText(hexBytes("0102030405060708"), 4);
  const std::vector<uint8_t> code = hexBytes("00112233445566778899aabbccddeeff");
  elf.setText(code, 4);
  EXPECT_EQ(imageOf(elf).sections().size(), 3u);
  EXPECT_EQ(imageOf(elf).segments().size(), 1u);
  EXPECT_EQ(bytesOf(*elf.text), code);
  EXPECT_EQ(elf.getSectionSize(".text"), 16u);
}

TEST(SetTextTest, LargeAlignmentRaisesSegmentAlignment) {
  ELF elf;
  elf.setText(hexBytes("00"), 0x2000);
  ASSERT_EQ(imageOf(elf).segments().size(), 1u);
  EXPECT_EQ(imageOf(elf).segments()[0].header.align, 0x2000u);
}

TEST(SetTextTest, RelocatableImageGetsNoSegment) {
  ELF elf;
  elf.setType(engine::kEtRel);
  elf.setText(hexBytes("0102"), 4);
  EXPECT_EQ(imageOf(elf).segments().size(), 0u);
  EXPECT_EQ(bytesOf(*elf.text), hexBytes("0102"));

  // A segment listing .text changes nothing either.
  ELF listed;
  listed.setText(hexBytes("01"), 4);
  ASSERT_EQ(imageOf(listed).segments().size(), 1u);
  listed.setType(engine::kEtRel);
  listed.setText(hexBytes("02"), 4);
  EXPECT_EQ(imageOf(listed).segments().size(), 1u);

  absl::optional<ELF> object = ELF::load(readShared("corpus/real/hello_32.o"));
  ASSERT_TRUE(object.has_value());
  ASSERT_EQ(object->getType(), engine::kEtRel);
  object->setText(hexBytes("90"), 16);
  EXPECT_EQ(imageOf(*object).segments().size(), 0u);
  EXPECT_EQ(imageOf(*object).findSection(".text")->header.addralign, 16u);
}

TEST(SetTextTest, ExistingSegmentCarryingTextIsEnough) {
  absl::optional<ELF> elf = ELF::load(readShared("corpus/real/hello_32"));
  ASSERT_TRUE(elf.has_value());
  const size_t segments = imageOf(*elf).segments().size();
  const engine::Section& text = *imageOf(*elf).findSection(".text");
  const uint64_t address = text.header.addr;
  elf->setText(hexBytes("c3"), 16);
  EXPECT_EQ(imageOf(*elf).segments().size(), segments);
  EXPECT_EQ(text.header.addr, address);
  EXPECT_EQ(elf->getTextAddr(), static_cast<uint32_t>(address));
  EXPECT_EQ(text.header.flags, engine::kShfAlloc | engine::kShfExecInstr);
}

TEST(SetTextTest, TextAddress) {
  ELF elf;
  EXPECT_EQ(elf.getTextAddr(), 0u);
  addProgbits(elf, ".text", "x").header.addr = 0x2000;
  EXPECT_EQ(elf.getTextAddr(), 0x2000u);
  imageOf(elf) = engine::Image(engine::kClass64, engine::kDataLsb);
  addProgbits(elf, ".text", "x").header.addr = 0x1234500002000;
  EXPECT_EQ(elf.getTextAddr(), 0x2000u);
}

TEST(SetTextTest, ZeroSizeTextIsNotCarriedAfterReload) {
  // A segment of size 0 carries nothing once reloaded, so each reload and
  // setText adds a segment again.
  ELF elf;
  elf.setText({}, 4);
  EXPECT_EQ(imageOf(elf).segments().size(), 1u);
  elf = reload(elf);
  elf.setText({}, 4);
  EXPECT_EQ(imageOf(elf).segments().size(), 2u);
}

TEST(SetCommentInfoTest, EmptyListChangesNothing) {
  ELF elf;
  elf.setCommentInfo({});
  EXPECT_FALSE(elf.hasSection(".comment"));
  EXPECT_FALSE(elf.commentInfo.has_value());

  elf.setCommentInfo({"keep"});
  const uint8_t* data = elf.getSection(".comment").data();
  elf.setCommentInfo({});
  EXPECT_EQ(elf.getSection(".comment").data(), data);
  EXPECT_THAT(linesOf(*elf.commentInfo), ElementsAre("keep", ""));
}

TEST(SetCommentInfoTest, SingleEmptyLineCreatesEmptySection) {
  ELF elf;
  elf.setCommentInfo({""});
  ASSERT_TRUE(elf.hasSection(".comment"));
  const engine::Section& comment = *imageOf(elf).findSection(".comment");
  EXPECT_EQ(comment.header.type, engine::kShtProgbits);
  EXPECT_EQ(comment.header.flags, engine::kShfMerge | engine::kShfStrings);
  EXPECT_EQ(comment.header.entsize, 1u);
  EXPECT_EQ(comment.header.addralign, 1u);
  EXPECT_EQ(comment.header.size, 0u);
  ASSERT_TRUE(elf.commentInfo.has_value());
  EXPECT_TRUE(elf.commentInfo->empty());
}

TEST(SetCommentInfoTest, DropsEmptyLinesAndEndsWithNul) {
  ELF elf;
  elf.setCommentInfo({"a", "", "b"});
  EXPECT_EQ(bytesOf(elf.getSection(".comment")), hexBytes("61006200"));
  EXPECT_THAT(linesOf(*elf.commentInfo), ElementsAre("a", "b", ""));
}

TEST(SetCommentInfoTest, ReplacesExistingLinesKeepingAttributes) {
  absl::optional<ELF> elf = ELF::load(readShared("corpus/real/hello_32"));
  ASSERT_TRUE(elf.has_value());
  ASSERT_TRUE(elf->commentInfo.has_value());
  engine::Section& comment = *imageOf(*elf).findSection(".comment");
  const uint64_t flags = comment.header.flags;
  const uint64_t entry_size = comment.header.entsize;
  const size_t sections = imageOf(*elf).sections().size();

  elf->setCommentInfo({"x"});
  EXPECT_EQ(bytesOf(elf->getSection(".comment")), hexBytes("7800"));
  EXPECT_THAT(linesOf(*elf->commentInfo), ElementsAre("x", ""));
  EXPECT_EQ(comment.header.flags, flags);
  EXPECT_EQ(comment.header.entsize, entry_size);
  EXPECT_EQ(imageOf(*elf).sections().size(), sections);
}

TEST(SetCommentInfoTest, LinesMayViewTheOldComment) {
  // Input lines that point into the section being replaced.
  ELF elf;
  elf.setCommentInfo({"first", "second"});
  const std::vector<absl::string_view> own = *elf.commentInfo;
  elf.setCommentInfo(own);
  EXPECT_THAT(linesOf(*elf.commentInfo), ElementsAre("first", "second", ""));
}

TEST(TextAndCommentTest, EachSetterLeavesTheOtherViewValid) {
  ELF elf;
  elf.setCommentInfo({"c"});
  elf.setText(hexBytes("0102"), 2);
  EXPECT_THAT(linesOf(*elf.commentInfo), ElementsAre("c", ""));
  const uint8_t* text = elf.text->data();
  elf.setCommentInfo({"d"});
  EXPECT_EQ(elf.text->data(), text);
  EXPECT_EQ(bytesOf(*elf.text), hexBytes("0102"));

  ELF loaded = reload(elf);
  EXPECT_EQ(bytesOf(*loaded.text), hexBytes("0102"));
  EXPECT_THAT(linesOf(*loaded.commentInfo), ElementsAre("d", ""));
}

}  // namespace
}  // namespace zelk_elf
