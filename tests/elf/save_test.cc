// ELF::save and the debug sections it writes.
#include <string>
#include <vector>

#include "elf/elf_test_util.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using testing::bytesOf;
using testing::hexBytes;
using testing::readLE;
using testing::readShared;
using testing::reload;
using testing::saveBytes;

constexpr const char* kDebugNames[] = {
    ".zelk.dbg.id",     ".zelk.dbg.spill",  ".zelk.dbg.swp",
    ".zelk.dbg.cfg",    ".zelk.dbg.src",    ".zelk.dbg.sym",
    ".zelk.dbg.pmsize", ".zelk.dbg.verifyinfo", ".zelk.dbg.latency"};

void fillAllDebugFields(ELF& elf) {
  elf.dbgID = DebugInfoID{1, 2, 3};
  elf.spillInfo = SpillInfo{{SpillLoc{16, 2, 1, "x"}}};
  elf.swpInfo = SWPInfo{{SWPLoc{1}, SWPLoc{2}}};
  elf.cfgInfo = ControlFlowGraph{{{BasicBlockRange{1, 2}, BasicBlockRange{3, 4}}}};
  elf.srcInfo = SourceMap{{"main.c", {"a", "bb"}}};
  elf.symInfo = SymbolMap{{"main", SymbolAddr{2, 256}}};
  elf.pmSize = 4096;
  elf.setVerifyInfo("ok");
  elf.latencyInfo = LatencyInfo{{LatencyInfoLoc{16, 1, 1, 2, 3, 4}}};
}

TEST(SaveTest, NewObjectSavesAndLoadsBack) {
  ELF elf;
  const std::vector<uint8_t> bytes = saveBytes(elf);
  ASSERT_EQ(bytes.size(), 144u);
  EXPECT_EQ(readLE(bytes, 0, 4), 0x464C457Fu);
  EXPECT_EQ(readLE(bytes, 32, 4), 0x40u);  // e_shoff
  EXPECT_EQ(readLE(bytes, 48, 2), 2u);     // e_shnum

  absl::optional<ELF> loaded = ELF::load(bytes);
  ASSERT_TRUE(loaded.has_value());
  EXPECT_THAT(loaded->getSectionNames(), ElementsAre("", ".shstrtab"));
  EXPECT_EQ(loaded->getMachine(), 0);
  EXPECT_EQ(loaded->getType(), 0);
  EXPECT_EQ(loaded->getEntry(), 0u);
  EXPECT_FALSE(loaded->dbgID || loaded->spillInfo || loaded->pmSize ||
               loaded->verifyInfo || loaded->commentInfo || loaded->text);
}

TEST(SaveTest, SavingTwiceGivesTheSameBytesAndNoNewSections) {
  ELF fresh;
  EXPECT_EQ(saveBytes(fresh), saveBytes(fresh));

  ELF elf;
  fillAllDebugFields(elf);
  const std::vector<uint8_t> first = saveBytes(elf);
  const size_t sections = imageOf(elf).sections().size();
  const std::vector<uint8_t> second = saveBytes(elf);
  EXPECT_EQ(imageOf(elf).sections().size(), sections);
  EXPECT_EQ(first, second);
}

TEST(SaveTest, AllNineFieldsBecomeSectionsTwoToTen) {
  ELF elf;
  fillAllDebugFields(elf);
  ELF loaded = reload(elf);
  std::vector<std::string> expected = {"", ".shstrtab"};
  expected.insert(expected.end(), std::begin(kDebugNames), std::end(kDebugNames));
  EXPECT_EQ(loaded.getSectionNames(), expected);
  for (const char* name : kDebugNames) {
    const engine::Section& section = *imageOf(loaded).findSection(name);
    EXPECT_EQ(section.header.type, engine::kShtProgbits) << name;
    EXPECT_EQ(section.header.addralign, 1u) << name;
    EXPECT_EQ(section.header.flags, 0u) << name;
  }
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.id")), hexBytes("0102000300"));
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.spill")),
            hexBytes("100000000201010000000000000078"));
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.swp")),
            hexBytes("0100000002000000"));
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.cfg")),
            hexBytes("01000000020000000300000004000000"));
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.sym")),
            hexBytes("010000000000000004000000000000006d61696e0200010000"));
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.pmsize")),
            hexBytes("00100000"));
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.verifyinfo")),
            hexBytes("02000000000000006f6b"));
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.latency")),
            hexBytes("100000000101020304"));

  EXPECT_EQ(loaded.dbgID, elf.dbgID);
  EXPECT_EQ(loaded.spillInfo, elf.spillInfo);
  EXPECT_EQ(loaded.swpInfo, elf.swpInfo);
  EXPECT_EQ(loaded.cfgInfo, elf.cfgInfo);
  EXPECT_EQ(loaded.srcInfo, elf.srcInfo);
  EXPECT_EQ(loaded.symInfo, elf.symInfo);
  EXPECT_EQ(loaded.pmSize, elf.pmSize);
  EXPECT_EQ(loaded.verifyInfo, elf.verifyInfo);
  EXPECT_EQ(loaded.latencyInfo, elf.latencyInfo);

  // Saved again, the loaded image keeps its table and adds nothing.
  ELF again = reload(loaded);
  EXPECT_EQ(again.getSectionNames(), expected);
}

TEST(SaveTest, PmSizeWrittenAsFourBytes) {
  ELF elf;
  elf.pmSize = 64;
  ELF loaded = reload(elf);
  EXPECT_EQ(bytesOf(loaded.getSection(".zelk.dbg.pmsize")), hexBytes("40000000"));
  EXPECT_EQ(loaded.pmSize, 64u);
}

TEST(SaveTest, EmptySpillListGivesEmptySection) {
  ELF elf;
  elf.spillInfo = SpillInfo{};
  ELF loaded = reload(elf);
  const engine::Section& spill = *imageOf(loaded).findSection(".zelk.dbg.spill");
  EXPECT_EQ(spill.header.size, 0u);
  EXPECT_EQ(spill.header.type, engine::kShtProgbits);
  EXPECT_EQ(spill.header.addralign, 1u);
  ASSERT_TRUE(loaded.spillInfo.has_value());
  EXPECT_TRUE(loaded.spillInfo->locs.empty());
}

TEST(SaveTest, ExistingNobitsDebugSectionBecomesProgbitsKeepingFlags) {
  ELF elf;
  engine::Section& pm = imageOf(elf).addSection(".zelk.dbg.pmsize");
  pm.header.type = engine::kShtNobits;
  pm.header.addralign = 8;
  pm.header.flags = engine::kShfAlloc;
  elf.pmSize = 0x11223344;
  ELF loaded = reload(elf);
  const engine::Section& saved = *imageOf(loaded).findSection(".zelk.dbg.pmsize");
  EXPECT_EQ(saved.header.type, engine::kShtProgbits);
  EXPECT_EQ(saved.header.addralign, 1u);
  EXPECT_EQ(saved.header.flags, engine::kShfAlloc);
  EXPECT_EQ(bytesOf(saved.bytes()), hexBytes("44332211"));
}

TEST(SaveTest, EmptyFieldLeavesItsSectionAlone) {
  ELF elf;
  elf.pmSize = 64;
  ELF loaded = reload(elf);
  loaded.pmSize.reset();
  ELF again = reload(loaded);
  EXPECT_EQ(bytesOf(again.getSection(".zelk.dbg.pmsize")), hexBytes("40000000"));
  EXPECT_EQ(again.pmSize, 64u);
}

TEST(SaveTest, SavingKeepsFieldsAndViews) {
  ELF elf;
  elf.setText(hexBytes("0102"), 4);
  elf.setCommentInfo({"c"});
  fillAllDebugFields(elf);
  const uint8_t* text = elf.text->data();
  ASSERT_FALSE(saveBytes(elf).empty());
  EXPECT_EQ(elf.text->data(), text);
  EXPECT_THAT(*elf.commentInfo, ElementsAre("c", ""));
  EXPECT_EQ(elf.pmSize, 4096u);
}

// The worked example of a fully edited new image.
TEST(SaveTest, EditedNewImageLayout) {
  ELF elf;
  elf.setSection(".zelk.dbg.pmsize", hexBytes("40000000"));
  elf.setText(hexBytes("0102030405060708"), 4);
  elf.setCommentInfo({"hello", "", "world"});
  elf.setMachine(0x1234);
  elf.setType(2);
  elf.setEntry(0x10);
  const std::vector<uint8_t> bytes = saveBytes(elf);
  ASSERT_EQ(bytes.size(), 4376u);
  EXPECT_EQ(readLE(bytes, 32, 4), 0x1050u);
  EXPECT_THAT(std::vector<uint8_t>(bytes.begin() + 0x1000,
                                   bytes.begin() + 0x1008),
              ElementsAreArray(hexBytes("0102030405060708")));
  EXPECT_EQ(std::string(bytes.begin() + 0x1037, bytes.begin() + 0x1037 + 12),
            std::string("hello\0world\0", 12));

  absl::optional<ELF> loaded = ELF::load(bytes);
  ASSERT_TRUE(loaded.has_value());
  EXPECT_EQ(saveBytes(*loaded), bytes);
}

TEST(SaveTest, RealImagesSaveAndLoadAgain) {
  for (const char* name : {"hello_32", "hello_64", "test_ppc", "asm64.o"}) {
    SCOPED_TRACE(name);
    absl::optional<ELF> elf =
        ELF::load(readShared(std::string("corpus/real/") + name));
    ASSERT_TRUE(elf.has_value());
    ELF loaded = reload(*elf);
    EXPECT_EQ(loaded.getSectionNames(), elf->getSectionNames());
    EXPECT_EQ(loaded.getMachine(), elf->getMachine());
    EXPECT_EQ(loaded.getEntry(), elf->getEntry());
  }
}

}  // namespace
}  // namespace zelk_elf
