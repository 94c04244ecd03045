// The load and save steps of the ".zelk.dbg." sections: the nine fields
// against the sections of an image.
#include "elf/debug_fields.h"

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "elf/internal.h"
#include "engine/image.h"
#include "gtest/gtest.h"
#include "serialize/codec_test_util.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace {

using namespace zelk_test;

engine::Section& AddSection(engine::Image& image, const std::string& name,
                            const Bytes& data,
                            uint32_t type = engine::kShtProgbits) {
  engine::Section& s = image.addSection(name);
  s.header.type = type;
  if (type != engine::kShtNobits) s.setData(data.data(), data.size());
  return s;
}

Bytes SectionBytes(const engine::Image& image, const std::string& name) {
  const engine::Section* s = image.findSection(name);
  if (s == nullptr) return B({0xDE, 0xAD});
  return Bytes(s->bytes().data(), s->bytes().data() + s->bytes().size());
}

// A loaded-from-nothing object: reads `image` into `elf`, which takes it.
bool Read(engine::Image& image, ELF& elf) {
  imageOf(elf) = std::move(image);
  return readDebugFields(elf).ok();
}

// Writes the fields of `elf` into `image`, which `elf` lends for the call.
bool Write(ELF& elf, engine::Image& image) {
  std::swap(imageOf(elf), image);
  const bool ok = writeDebugFields(elf).ok();
  std::swap(imageOf(elf), image);
  return ok;
}

void ExpectNoField(const ELF& elf) {
  EXPECT_FALSE(elf.dbgID);
  EXPECT_FALSE(elf.spillInfo);
  EXPECT_FALSE(elf.swpInfo);
  EXPECT_FALSE(elf.cfgInfo);
  EXPECT_FALSE(elf.srcInfo);
  EXPECT_FALSE(elf.symInfo);
  EXPECT_FALSE(elf.pmSize);
  EXPECT_FALSE(elf.verifyInfo);
  EXPECT_FALSE(elf.latencyInfo);
}

TEST(ReadDebugSectionsTest, NoDebugSectionsLeavesEveryFieldEmpty) {
  engine::Image image;
  AddSection(image, ".text", B({1, 2, 3}));
  ELF elf;
  EXPECT_TRUE(Read(image, elf));
  ExpectNoField(elf);
}

TEST(ReadDebugSectionsTest, PmSizeAlone) {
  engine::Image image;
  AddSection(image, ".zelk.dbg.pmsize", B({0x00, 0x10, 0x00, 0x00}));
  ELF elf;
  ASSERT_TRUE(Read(image, elf));
  EXPECT_EQ(elf.pmSize, 4096u);
  elf.pmSize.reset();
  ExpectNoField(elf);
}

TEST(ReadDebugSectionsTest, PmSizeTakesTheFirstFourBytes) {
  engine::Image three;
  AddSection(three, ".zelk.dbg.pmsize", B({0x00, 0x10, 0x00}));
  ELF a;
  EXPECT_FALSE(Read(three, a));

  engine::Image eight;
  AddSection(eight, ".zelk.dbg.pmsize", B({0x01, 0x02, 0x03, 0x04, 9, 9, 9, 9}));
  ELF b;
  ASSERT_TRUE(Read(eight, b));
  EXPECT_EQ(b.pmSize, 0x04030201u);
}

TEST(ReadDebugSectionsTest, EmptySectionsDependOnThePayloadForm) {
  // Lists to the end: engaged and empty.
  for (const char* name : {".zelk.dbg.spill", ".zelk.dbg.swp", ".zelk.dbg.cfg",
                           ".zelk.dbg.latency"}) {
    engine::Image image;
    AddSection(image, name, Bytes());
    ELF elf;
    ASSERT_TRUE(Read(image, elf)) << name;
    EXPECT_TRUE(elf.spillInfo || elf.swpInfo || elf.cfgInfo || elf.latencyInfo);
  }
  engine::Image spill;
  AddSection(spill, ".zelk.dbg.spill", Bytes());
  ELF s;
  ASSERT_TRUE(Read(spill, s));
  ASSERT_TRUE(s.spillInfo);
  EXPECT_TRUE(s.spillInfo->locs.empty());
  // Every other payload is refused.
  for (const char* name : {".zelk.dbg.id", ".zelk.dbg.src", ".zelk.dbg.sym",
                           ".zelk.dbg.pmsize", ".zelk.dbg.verifyinfo"}) {
    engine::Image image;
    AddSection(image, name, Bytes());
    ELF elf;
    EXPECT_FALSE(Read(image, elf)) << name;
  }
}

TEST(ReadDebugSectionsTest, NobitsSectionsCountAsEmpty) {
  engine::Image swp;
  AddSection(swp, ".zelk.dbg.swp", Bytes(), engine::kShtNobits).header.size = 64;
  ELF a;
  ASSERT_TRUE(Read(swp, a));
  ASSERT_TRUE(a.swpInfo);
  EXPECT_TRUE(a.swpInfo->locs.empty());

  engine::Image id;
  AddSection(id, ".zelk.dbg.id", Bytes(), engine::kShtNobits).header.size = 5;
  ELF b;
  EXPECT_FALSE(Read(id, b));
}

TEST(ReadDebugSectionsTest, FirstFailureFailsTheWholeStep) {
  engine::Image image;
  AddSection(image, ".zelk.dbg.id", B({1, 2, 0, 3, 0}));
  AddSection(image, ".zelk.dbg.swp", Bytes(6, 0));
  ELF elf;
  EXPECT_FALSE(Read(image, elf));
}

TEST(ReadDebugSectionsTest, VerifyInfo) {
  engine::Image empty;
  AddSection(empty, ".zelk.dbg.verifyinfo", Bytes(8, 0));
  ELF a;
  ASSERT_TRUE(Read(empty, a));
  EXPECT_EQ(a.verifyInfo, std::string());

  engine::Image too_long;
  AddSection(too_long, ".zelk.dbg.verifyinfo", Cat({U64(4), B({'a', 'b'})}));
  ELF b;
  EXPECT_FALSE(Read(too_long, b));
}

TEST(ReadDebugSectionsTest, OnlyTheFirstSectionOfANameIsDecoded) {
  engine::Image image;
  AddSection(image, ".zelk.dbg.swp", B({7, 0, 0, 0}));
  AddSection(image, ".zelk.dbg.swp", Bytes(3, 0));  // malformed, ignored
  ELF elf;
  ASSERT_TRUE(Read(image, elf));
  EXPECT_EQ(elf.swpInfo, (SWPInfo{{{7}}}));
}

TEST(ReadDebugSectionsTest, AllNineSections) {
  engine::Image image;
  AddSection(image, ".zelk.dbg.latency", B({4, 3, 2, 1, 5, 6, 7, 8, 9}));
  AddSection(image, ".zelk.dbg.id", B({1, 2, 0, 3, 0, 0xFF}));
  AddSection(image, ".zelk.dbg.spill",
             B({0x10, 0, 0, 0, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0x78}));
  AddSection(image, ".zelk.dbg.swp", B({1, 0, 0, 0, 2, 0, 0, 0}));
  AddSection(image, ".zelk.dbg.cfg", B({1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0}));
  AddSection(image, ".zelk.dbg.src", Cat({U64(1), Str("a.zc"), U64(1), Str("x = 1")}));
  AddSection(image, ".zelk.dbg.sym",
             B({1, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0x6D, 0x61, 0x69,
                0x6E, 0x02, 0x00, 0x01, 0x00, 0x00}));
  AddSection(image, ".zelk.dbg.pmsize", B({0, 0x10, 0, 0}));
  AddSection(image, ".zelk.dbg.verifyinfo", Str("verified"));
  ELF elf;
  ASSERT_TRUE(Read(image, elf));
  EXPECT_EQ(elf.dbgID, (DebugInfoID{1, 2, 3}));
  EXPECT_EQ(elf.spillInfo, (SpillInfo{{{16, 2, 1, "x"}}}));
  EXPECT_EQ(elf.swpInfo, (SWPInfo{{{1}, {2}}}));
  EXPECT_EQ(elf.cfgInfo, (ControlFlowGraph{{std::make_tuple(BasicBlockRange{1, 2},
                                                            BasicBlockRange{3, 4})}}));
  EXPECT_EQ(elf.srcInfo, (SourceMap{{"a.zc", {"x = 1"}}}));
  EXPECT_EQ(elf.symInfo, (SymbolMap{{"main", SymbolAddr{2, 256}}}));
  EXPECT_EQ(elf.pmSize, 4096u);
  EXPECT_EQ(elf.verifyInfo, std::string("verified"));
  EXPECT_EQ(elf.latencyInfo, (LatencyInfo{{{0x01020304, 5, 6, 7, 8, 9}}}));
}

ELF AllNineFields() {
  ELF elf;
  elf.dbgID = DebugInfoID{1, 2, 3};
  elf.spillInfo = SpillInfo{{{16, 2, 1, "x"}}};
  elf.swpInfo = SWPInfo{{{1}, {2}}};
  elf.cfgInfo = ControlFlowGraph{{std::make_tuple(BasicBlockRange{1, 2}, BasicBlockRange{3, 4})}};
  elf.srcInfo = SourceMap{{"a.zc", {"x = 1"}}};
  elf.symInfo = SymbolMap{{"main", SymbolAddr{2, 256}}};
  elf.pmSize = 4096;
  elf.setVerifyInfo("verified");
  elf.latencyInfo = LatencyInfo{{{0x01020304, 5, 6, 7, 8, 9}}};
  return elf;
}

TEST(WriteDebugSectionsTest, NewImageGainsNineSectionsInOrder) {
  engine::Image image;
  ASSERT_EQ(image.sections().size(), 2u);
  ELF elf = AllNineFields();
  ASSERT_TRUE(Write(elf, image));
  ASSERT_EQ(image.sections().size(), 11u);
  for (size_t i = 0; i < 9; ++i) {
    const engine::Section& s = image.sections()[2 + i];
    EXPECT_EQ(s.name, kDebugSectionNames[i]);
    EXPECT_EQ(s.header.type, engine::kShtProgbits);
    EXPECT_EQ(s.header.addralign, 1u);
    EXPECT_EQ(s.header.flags, 0u);
    EXPECT_EQ(s.header.addr, 0u);
    EXPECT_EQ(s.header.link, 0u);
    EXPECT_EQ(s.header.info, 0u);
    EXPECT_EQ(s.header.entsize, 0u);
    EXPECT_EQ(s.header.size, s.bytes().size());
  }
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.id"), B({1, 2, 0, 3, 0}));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.spill"),
            B({0x10, 0, 0, 0, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0x78}));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.swp"), B({1, 0, 0, 0, 2, 0, 0, 0}));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.cfg"),
            B({1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0}));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.src"),
            Cat({U64(1), Str("a.zc"), U64(1), Str("x = 1")}));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.sym"),
            B({1, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0x6D, 0x61, 0x69,
               0x6E, 0x02, 0x00, 0x01, 0x00, 0x00}));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.pmsize"), B({0, 0x10, 0, 0}));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.verifyinfo"), Str("verified"));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.latency"), B({4, 3, 2, 1, 5, 6, 7, 8, 9}));

  // And back.
  ELF again;
  ASSERT_TRUE(Read(image, again));
  EXPECT_EQ(again.dbgID, elf.dbgID);
  EXPECT_EQ(again.spillInfo, elf.spillInfo);
  EXPECT_EQ(again.swpInfo, elf.swpInfo);
  EXPECT_EQ(again.cfgInfo, elf.cfgInfo);
  EXPECT_EQ(again.srcInfo, elf.srcInfo);
  EXPECT_EQ(again.symInfo, elf.symInfo);
  EXPECT_EQ(again.pmSize, elf.pmSize);
  EXPECT_EQ(again.verifyInfo, elf.verifyInfo);
  EXPECT_EQ(again.latencyInfo, elf.latencyInfo);
}

TEST(WriteDebugSectionsTest, ExistingSectionsAreRewrittenInPlace) {
  engine::Image image;
  for (int i = 8; i >= 0; --i) AddSection(image, std::string(kDebugSectionNames[i]), B({0xAA}));
  AddSection(image, ".text", B({1}));
  ELF elf = AllNineFields();
  ASSERT_TRUE(Write(elf, image));
  ASSERT_EQ(image.sections().size(), 12u);
  for (int i = 8; i >= 0; --i) {
    EXPECT_EQ(image.sections()[2 + (8 - i)].name, kDebugSectionNames[i]);
  }
  EXPECT_EQ(image.sections()[11].name, ".text");
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.swp"), B({1, 0, 0, 0, 2, 0, 0, 0}));
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.pmsize"), B({0, 0x10, 0, 0}));
}

TEST(WriteDebugSectionsTest, EmptyListGivesAnEmptyProgbitsSection) {
  engine::Image image;
  ELF elf;
  elf.spillInfo = SpillInfo{};
  ASSERT_TRUE(Write(elf, image));
  const engine::Section* s = image.findSection(".zelk.dbg.spill");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->header.size, 0u);
  EXPECT_EQ(s->bytes().size(), 0u);
  EXPECT_EQ(s->header.type, engine::kShtProgbits);
  EXPECT_EQ(s->header.addralign, 1u);
  EXPECT_EQ(image.sections().size(), 3u);  // only engaged fields get sections

  ELF again;
  ASSERT_TRUE(Read(image, again));
  ASSERT_TRUE(again.spillInfo);
  EXPECT_TRUE(again.spillInfo->locs.empty());
}

TEST(WriteDebugSectionsTest, NobitsSectionBecomesProgbitsAndKeepsItsFlags) {
  engine::Image image;
  engine::Section& s = AddSection(image, ".zelk.dbg.pmsize", Bytes(), engine::kShtNobits);
  s.header.addralign = 8;
  s.header.flags = engine::kShfAlloc;
  ELF elf;
  elf.pmSize = 0x11223344;
  ASSERT_TRUE(Write(elf, image));
  const engine::Section* after = image.findSection(".zelk.dbg.pmsize");
  ASSERT_EQ(after, &s);
  EXPECT_EQ(after->header.type, engine::kShtProgbits);
  EXPECT_EQ(after->header.addralign, 1u);
  EXPECT_EQ(after->header.flags, engine::kShfAlloc);
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.pmsize"), B({0x44, 0x33, 0x22, 0x11}));
}

TEST(WriteDebugSectionsTest, AbsentFieldLeavesItsSectionAlone) {
  engine::Image image;
  AddSection(image, ".zelk.dbg.swp", B({9, 0, 0, 0}), 7);
  ELF elf;  // swpInfo absent
  ASSERT_TRUE(Write(elf, image));
  const engine::Section* s = image.findSection(".zelk.dbg.swp");
  EXPECT_EQ(s->header.type, 7u);
  EXPECT_EQ(SectionBytes(image, ".zelk.dbg.swp"), B({9, 0, 0, 0}));
}

TEST(WriteDebugSectionsTest, OnlyTheFirstSectionOfANameIsWritten) {
  engine::Image image;
  AddSection(image, ".zelk.dbg.swp", B({9, 0, 0, 0}));
  AddSection(image, ".zelk.dbg.swp", B({8, 0, 0, 0}));
  ELF elf;
  elf.swpInfo = SWPInfo{{{1}}};
  ASSERT_TRUE(Write(elf, image));
  EXPECT_EQ(image.sections()[2].bytes().size(), 4u);
  EXPECT_EQ(image.sections()[2].bytes()[0], 1);
  EXPECT_EQ(image.sections()[3].bytes()[0], 8);
}

}  // namespace
}  // namespace zelk_elf
