// The nine debug fields against the sections they are read from and written to.
#include <string>
#include <vector>

#include "elf/internal.h"
#include "gtest/gtest.h"
#include "support/test_support.h"

namespace zelk_elf {
namespace {

using testing::Bytes;
using testing::bytesOf;
using testing::hex;
using testing::saveBytes;

engine::Section& addSection(ELF& elf, const std::string& name, const Bytes& data,
                            uint32_t type = engine::kShtProgbits) {
  engine::Section& s = imageOf(elf).addSection(name);
  s.header.type = type;
  EXPECT_TRUE(s.setData(data.data(), data.size()).ok());
  return s;
}

std::string loadReason(ELF& elf) {
  return std::string(loadWithReason(saveBytes(elf)).status().message());
}

// New sections come in field order; their bytes are the payload table's matter.
TEST(DebugFieldsTest, NineFieldsBecomeSectionsTwoToTenAndLoadBack) {
  ELF elf = testing::richELF();
  const Bytes first = saveBytes(elf);
  EXPECT_EQ(saveBytes(elf), first);  // saving again adds nothing
  absl::StatusOr<ELF> loaded = loadWithReason(first);
  ASSERT_TRUE(loaded.ok()) << loaded.status();
  const engine::Image& image = imageOf(*loaded);
  ASSERT_EQ(image.sections().size(), 14u);  // after .text, .comment and .zelk.raw
  for (size_t i = 0; i < 9; ++i) {
    const engine::Section& s = image.sections()[5 + i];
    EXPECT_EQ(s.name, kDebugSectionNames[i]);
    const engine::SectionHeader& h = s.header;
    EXPECT_EQ(
        (std::vector<uint64_t>{h.type, h.flags, h.addr, h.link, h.info, h.addralign, h.entsize}),
        (std::vector<uint64_t>{engine::kShtProgbits, 0, 0, 0, 0, 1, 0}));
  }
  EXPECT_TRUE(testing::sameDebugInfo(*loaded, elf));
}

// Save rewrites the first section of an engaged field's name in place, as
// PROGBITS aligned to 1 with its flags; others are left alone.
TEST(DebugFieldsTest, ExistingSectionsAreRewrittenInPlace) {
  ELF elf;
  engine::Section& pm = addSection(elf, ".zelk.dbg.pmsize", {}, engine::kShtNobits);
  pm.header.flags = engine::kShfAlloc;
  pm.header.addralign = 8;
  addSection(elf, ".zelk.dbg.swp", hex("09000000"), 7);
  addSection(elf, ".zelk.dbg.spill", hex("aa"));
  addSection(elf, ".zelk.dbg.spill", hex("bb"));
  elf.pmSize = 0x11223344;
  elf.spillInfo = SpillInfo{};
  ASSERT_FALSE(saveBytes(elf).empty());
  const absl::Span<const engine::Section> s = imageOf(elf).sections();
  ASSERT_EQ(s.size(), 6u);
  EXPECT_EQ((std::vector<uint64_t>{s[2].header.type, s[2].header.flags, s[2].header.addralign,
                                   s[3].header.type, s[4].header.size}),
            (std::vector<uint64_t>{engine::kShtProgbits, engine::kShfAlloc, 1, 7, 0}));
  EXPECT_EQ(bytesOf(s[2].bytes()), hex("44332211"));
  EXPECT_EQ(bytesOf(s[3].bytes()), hex("09000000"));
  EXPECT_EQ(bytesOf(s[5].bytes()), hex("bb"));

  // Raw bytes leave the field as it is; the next save writes the field again.
  elf.setSection(".zelk.dbg.pmsize", hex("00100000"));
  EXPECT_EQ(elf.pmSize, 0x11223344u);
  ASSERT_FALSE(saveBytes(elf).empty());
  EXPECT_EQ(bytesOf(elf.getSection(".zelk.dbg.pmsize")), hex("44332211"));
}

// Load decodes the first section of a name, NOBITS as empty; a refused payload
// refuses the load, naming its section.
TEST(DebugFieldsTest, LoadDecodesTheFirstSectionOfEachName) {
  ELF elf;
  addSection(elf, ".zelk.dbg.swp", {}, engine::kShtNobits).header.size = 64;
  addSection(elf, ".zelk.dbg.swp", hex("000000"));
  addSection(elf, ".text", hex("01"));
  absl::StatusOr<ELF> loaded = loadWithReason(saveBytes(elf));
  ASSERT_TRUE(loaded.ok()) << loaded.status();
  EXPECT_EQ(loaded->swpInfo, SWPInfo());
  EXPECT_FALSE(loaded->dbgID || loaded->spillInfo || loaded->cfgInfo || loaded->srcInfo ||
               loaded->symInfo || loaded->pmSize || loaded->verifyInfo || loaded->latencyInfo);

  addSection(elf, ".zelk.dbg.cfg", hex("01"));
  EXPECT_EQ(loadReason(elf),
            ".zelk.dbg.cfg: payload of 1 bytes ends inside an element at offset 0");
  addSection(elf, ".zelk.dbg.id", {}, engine::kShtNobits).header.size = 5;
  EXPECT_EQ(loadReason(elf), ".zelk.dbg.id: payload is empty");
}

}  // namespace
}  // namespace zelk_elf
