// Construction, moving and the header fields of ELF.
#include <utility>

#include "elf/elf_test_util.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using ::testing::ElementsAre;
using testing::bytesOf;
using testing::linesOf;

void expectNoOptionalFields(const ELF& elf) {
  EXPECT_FALSE(elf.dbgID.has_value());
  EXPECT_FALSE(elf.spillInfo.has_value());
  EXPECT_FALSE(elf.swpInfo.has_value());
  EXPECT_FALSE(elf.cfgInfo.has_value());
  EXPECT_FALSE(elf.srcInfo.has_value());
  EXPECT_FALSE(elf.symInfo.has_value());
  EXPECT_FALSE(elf.pmSize.has_value());
  EXPECT_FALSE(elf.verifyInfo.has_value());
  EXPECT_FALSE(elf.latencyInfo.has_value());
  EXPECT_FALSE(elf.commentInfo.has_value());
  EXPECT_FALSE(elf.text.has_value());
}

TEST(ElfObjectTest, NewObjectIsEmpty32BitLittleEndian) {
  ELF elf;
  ASSERT_NE(elf.impl, nullptr);
  EXPECT_EQ(elf.getMachine(), 0);
  EXPECT_EQ(elf.getType(), 0);
  EXPECT_EQ(elf.getEntry(), 0u);
  EXPECT_THAT(elf.getSectionNames(), ElementsAre("", ".shstrtab"));
  EXPECT_EQ(imageOf(elf).elfClass(), engine::kClass32);
  EXPECT_EQ(imageOf(elf).encoding(), engine::kDataLsb);
  EXPECT_EQ(imageOf(elf).segments().size(), 0u);
  expectNoOptionalFields(elf);
}

TEST(ElfObjectTest, HeaderFieldsKeepTheirWidth) {
  ELF elf;
  elf.setMachine(0xFFFF);
  EXPECT_EQ(elf.getMachine(), 0xFFFF);
  elf.setType(0xFE00);
  EXPECT_EQ(elf.getType(), 0xFE00);
  elf.setEntry((uint64_t{1} << 32) + 4);
  EXPECT_EQ(elf.getEntry(), 4u);  // a 32-bit image keeps the low half

  imageOf(elf) = engine::Image(engine::kClass64, engine::kDataMsb);
  elf.setEntry((uint64_t{1} << 32) + 4);
  EXPECT_EQ(elf.getEntry(), (uint64_t{1} << 32) + 4);
}

TEST(ElfObjectTest, VerifyInfoEmptyIsPresentAndLaterTextReplaces) {
  ELF elf;
  elf.setVerifyInfo("");
  ASSERT_TRUE(elf.verifyInfo.has_value());
  EXPECT_EQ(*elf.verifyInfo, "");
  elf.setVerifyInfo("first");
  elf.setVerifyInfo("second");
  EXPECT_EQ(*elf.verifyInfo, "second");
}

TEST(ElfObjectTest, MoveConstructionKeepsImageAndViews) {
  ELF source;
  source.setText(bytesOf("abcd"), 4);
  source.setCommentInfo({"one"});
  source.spillInfo = SpillInfo{{SpillLoc{1, 2, 3, "x"}}};
  source.pmSize = 7;
  const ELF::Impl* impl = source.impl.get();
  const uint8_t* text = source.text->data();

  ELF target(std::move(source));
  EXPECT_EQ(source.impl, nullptr);
  EXPECT_EQ(target.impl.get(), impl);
  EXPECT_EQ(target.text->data(), text);
  EXPECT_EQ(bytesOf(*target.text), bytesOf("abcd"));
  EXPECT_THAT(linesOf(*target.commentInfo), ElementsAre("one", ""));
  ASSERT_EQ(target.spillInfo->locs.size(), 1u);

  // Moved-from: containers engaged and empty, scalars keep their value.
  ASSERT_TRUE(source.spillInfo.has_value());
  EXPECT_TRUE(source.spillInfo->locs.empty());
  EXPECT_EQ(source.pmSize, 7u);
}

TEST(ElfObjectTest, MoveAssignmentTakesImageAndFields) {
  ELF source;
  source.setText(bytesOf("code"), 2);
  source.setCommentInfo({"c1", "c2"});
  source.dbgID = DebugInfoID{1, 2, 3};

  ELF target;
  target.setText(bytesOf("old text"), 1);
  target.pmSize = 5;
  target.verifyInfo = "old";

  target = std::move(source);
  EXPECT_EQ(source.impl, nullptr);
  ASSERT_NE(target.impl, nullptr);
  EXPECT_EQ(bytesOf(*target.text), bytesOf("code"));
  EXPECT_EQ(target.text->data(), imageOf(target).findSection(".text")->bytes().data());
  EXPECT_THAT(linesOf(*target.commentInfo), ElementsAre("c1", "c2", ""));
  EXPECT_EQ(target.dbgID, (DebugInfoID{1, 2, 3}));
  // An empty source field empties the target's.
  EXPECT_FALSE(target.pmSize.has_value());
  EXPECT_FALSE(target.verifyInfo.has_value());

  // The moved-from object can be assigned to and used again.
  source = ELF();
  ASSERT_NE(source.impl, nullptr);
  EXPECT_THAT(source.getSectionNames(), ElementsAre("", ".shstrtab"));
}

TEST(ElfObjectTest, MovedFromObjectCanBeDestroyed) {
  auto source = std::make_unique<ELF>();
  source->setText(bytesOf("x"), 1);
  ELF target(std::move(*source));
  source.reset();
  EXPECT_EQ(bytesOf(*target.text), bytesOf("x"));
}

}  // namespace
}  // namespace zelk_elf
