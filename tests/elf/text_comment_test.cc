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
using testing::imageOf;
using testing::linesOf;
using testing::readShared;
using testing::reload;

TEST(SetTextTest, NewImageGainsTextSectionAndLoadSegment) {
  ELF elf;
  const std::vector<uint8_t> code = hexBytes("0102030405060708");
  elf.setText(code, 4);

  const engine::Image& image = imageOf(elf);
  ASSERT_EQ(image.sectionCount(), 3u);
  const engine::Section& text = image.section(2);
  EXPECT_EQ(text.name(), ".text");
  EXPECT_EQ(text.type(), engine::kShtProgbits);
  EXPECT_EQ(text.flags(), engine::kShfAlloc | engine::kShfExecInstr);
  EXPECT_EQ(text.size(), 8u);
  EXPECT_EQ(text.addrAlign(), 4u);

  ASSERT_EQ(image.segmentCount(), 1u);
  const engine::Segment& segment = image.segment(0);
  EXPECT_EQ(segment.type(), engine::kPtLoad);
  EXPECT_EQ(segment.flags(), engine::kPfR | engine::kPfX);
  EXPECT_EQ(segment.virtualAddress(), 0u);
  EXPECT_EQ(segment.physicalAddress(), 0u);
  EXPECT_EQ(segment.align(), 0x1000u);
  EXPECT_THAT(segment.sectionIndexes(), ElementsAre(2));

  ASSERT_TRUE(elf.text.has_value());
  EXPECT_EQ(bytesOf(*elf.text), code);
  EXPECT_EQ(elf.text->data(), text.data());
  EXPECT_EQ(elf.getTextAddr(), 0u);
}

TEST(SetTextTest, SecondCallReplacesDataOnly) {
  ELF elf;
  elf.setText(hexBytes("0102030405060708"), 4);
  const std::vector<uint8_t> code = hexBytes("00112233445566778899aabbccddeeff");
  elf.setText(code, 4);
  EXPECT_EQ(imageOf(elf).sectionCount(), 3u);
  EXPECT_EQ(imageOf(elf).segmentCount(), 1u);
  EXPECT_EQ(bytesOf(*elf.text), code);
  EXPECT_EQ(elf.getSectionSize(".text"), 16u);
}

TEST(SetTextTest, LargeAlignmentRaisesSegmentAlignment) {
  ELF elf;
  elf.setText(hexBytes("00"), 0x2000);
  ASSERT_EQ(imageOf(elf).segmentCount(), 1u);
  EXPECT_EQ(imageOf(elf).segment(0).align(), 0x2000u);
}

TEST(SetTextTest, RelocatableImageGetsNoSegment) {
  ELF elf;
  elf.setType(engine::kEtRel);
  elf.setText(hexBytes("0102"), 4);
  EXPECT_EQ(imageOf(elf).segmentCount(), 0u);
  EXPECT_EQ(bytesOf(*elf.text), hexBytes("0102"));

  // A segment listing .text changes nothing either.
  ELF listed;
  listed.setText(hexBytes("01"), 4);
  ASSERT_EQ(imageOf(listed).segmentCount(), 1u);
  listed.setType(engine::kEtRel);
  listed.setText(hexBytes("02"), 4);
  EXPECT_EQ(imageOf(listed).segmentCount(), 1u);

  absl::optional<ELF> object = ELF::load(readShared("corpus/real/hello_32.o"));
  ASSERT_TRUE(object.has_value());
  ASSERT_EQ(object->getType(), engine::kEtRel);
  object->setText(hexBytes("90"), 16);
  EXPECT_EQ(imageOf(*object).segmentCount(), 0u);
  EXPECT_EQ(imageOf(*object).findSection(".text")->addrAlign(), 16u);
}

TEST(SetTextTest, ExistingSegmentCarryingTextIsEnough) {
  absl::optional<ELF> elf = ELF::load(readShared("corpus/real/hello_32"));
  ASSERT_TRUE(elf.has_value());
  const size_t segments = imageOf(*elf).segmentCount();
  const engine::Section& text = *imageOf(*elf).findSection(".text");
  const uint64_t address = text.address();
  elf->setText(hexBytes("c3"), 16);
  EXPECT_EQ(imageOf(*elf).segmentCount(), segments);
  EXPECT_EQ(text.address(), address);
  EXPECT_EQ(elf->getTextAddr(), static_cast<uint32_t>(address));
  EXPECT_EQ(text.flags(), engine::kShfAlloc | engine::kShfExecInstr);
}

TEST(SetTextTest, TextAddress) {
  ELF elf;
  EXPECT_EQ(elf.getTextAddr(), 0u);
  addProgbits(elf, ".text", "x").setAddress(0x2000);
  EXPECT_EQ(elf.getTextAddr(), 0x2000u);
  imageOf(elf).create(engine::kClass64, engine::kDataLsb);
  addProgbits(elf, ".text", "x").setAddress(0x1234500002000);
  EXPECT_EQ(elf.getTextAddr(), 0x2000u);
}

TEST(SetTextTest, ZeroSizeTextIsNotCarriedAfterReload) {
  // A segment of size 0 carries nothing once reloaded, so each reload and
  // setText adds a segment again.
  ELF elf;
  elf.setText({}, 4);
  EXPECT_EQ(imageOf(elf).segmentCount(), 1u);
  elf = reload(elf);
  elf.setText({}, 4);
  EXPECT_EQ(imageOf(elf).segmentCount(), 2u);
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
  EXPECT_EQ(comment.type(), engine::kShtProgbits);
  EXPECT_EQ(comment.flags(), engine::kShfMerge | engine::kShfStrings);
  EXPECT_EQ(comment.entrySize(), 1u);
  EXPECT_EQ(comment.addrAlign(), 1u);
  EXPECT_EQ(comment.size(), 0u);
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
  const uint64_t flags = comment.flags();
  const uint64_t entry_size = comment.entrySize();
  const size_t sections = imageOf(*elf).sectionCount();

  elf->setCommentInfo({"x"});
  EXPECT_EQ(bytesOf(elf->getSection(".comment")), hexBytes("7800"));
  EXPECT_THAT(linesOf(*elf->commentInfo), ElementsAre("x", ""));
  EXPECT_EQ(comment.flags(), flags);
  EXPECT_EQ(comment.entrySize(), entry_size);
  EXPECT_EQ(imageOf(*elf).sectionCount(), sections);
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
