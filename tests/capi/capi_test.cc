// The C interface over the shared library: null handles and arguments, and
// what each query hands out and for how long.
#include <set>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/test_support.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace {

using testing::Bytes;
using testing::hex;

// The object saved and loaded into a handle the caller frees.
zelkELFHandle handleOf(ELF& elf) {
  const Bytes bytes = testing::saveBytes(elf);
  return zelkELFLoad(bytes.data(), bytes.size());
}

zelkELFHandle handleWith(const std::string& section, const Bytes& data) {
  ELF elf;
  elf.setSection(section, data);
  return handleOf(elf);
}

// A null handle, name or record pointer gives the empty result, as an absent
// section or field does, and as an empty spill list and an identification of
// a kind outside the enumeration do; the free functions accept empty records.
TEST(CapiTest, NullHandlesAndArgumentsGiveTheEmptyResult) {
  zelkELFHandle valid = handleWith(".x", {1, 2});  // and no debug information
  ELF elf;
  elf.dbgID = DebugInfoID{2, 1, 2};
  elf.spillInfo = SpillInfo();
  zelkELFHandle odd = handleOf(elf);
  zelkELFDbgID id = {ZELK_ELF_DBG_ID_KIND_1, 7, 9};
  for (zelkELFHandle h : {static_cast<zelkELFHandle>(nullptr), valid, odd}) {
    const char* name = h == nullptr ? ".x" : nullptr;
    zelkELFSetSection(h, name, nullptr, 0);
    const zelkELFSection s = zelkELFGetSection(h, name);
    EXPECT_TRUE(s.data == nullptr && s.size == 0 && zelkELFGetSectionSize(h, name) == 0);
    EXPECT_TRUE(zelkELFGetSrcList(h, name).names == nullptr && zelkELFGetDbgID(h, nullptr) == 0);
    EXPECT_TRUE(zelkELFGetDbgID(h, &id) == 0 && id.id0 == 7 && id.id1 == 9);
    EXPECT_TRUE(zelkELFGetSpillInfo(h).locs == nullptr && zelkELFGetSWPInfo(h).count == 0 &&
                zelkELFGetCFGInfo(h).edges == nullptr && zelkELFGetSrcNameList(h).count == 0 &&
                zelkELFGetSrcNameList(h).names == nullptr && zelkELFGetPMSize(h) == 0 &&
                zelkELFGetVerifyInfo(h) == nullptr);
  }
  EXPECT_TRUE(zelkELFSave(nullptr).data == nullptr && zelkELFLoad(nullptr, 0) == nullptr);
  zelkELFFree(nullptr);
  zelkELFFreeSpillInfo({nullptr, 0});
  zelkELFFreeSWPInfo({nullptr, 0});
  zelkELFFreeCFGInfo({nullptr, 0});
  zelkELFFreeSrcList({nullptr, 0});
  zelkELFFreeBin({nullptr, 0});
  EXPECT_EQ(zelkELFGetSectionSize(valid, ".x"), 2u);
  zelkELFFree(valid);
  zelkELFFree(odd);
}

TEST(CapiTest, SectionsAndSavedImagesAreCopies) {
  Bytes data = hex("0001020304050607");
  ELF empty;
  zelkELFHandle h = handleOf(empty);
  zelkELFSetSection(h, "my\0ignored", data.data(), data.size());  // names end at a NUL
  data.assign(8, 0xFF);
  const zelkELFSection my = zelkELFGetSection(h, "my");
  EXPECT_EQ(Bytes(my.data, my.data + my.size), hex("0001020304050607"));
  const zelkELFBin bin = zelkELFSave(h);
  const zelkELFBin again = zelkELFSave(h);
  zelkELFFree(h);  // the buffers outlive the handle
  EXPECT_NE(bin.data, again.data);
  const Bytes image(bin.data, bin.data + bin.size);
  EXPECT_EQ(image, Bytes(again.data, again.data + again.size));
  zelkELFFreeBin(bin);
  zelkELFFreeBin(again);
  ELF elf;
  elf.setSection("my", hex("0001020304050607"));
  EXPECT_EQ(image, testing::saveBytes(elf));
}

// Spill locations in order, padding zeroed; an undefined kind hides the list.
TEST(CapiTest, SpillLocations) {
  Bytes payload;
  for (uint8_t i = 0; i <= 6; ++i) {
    const Bytes loc = {i, 0, 0, 0, uint8_t(10 + i), i, 1, 0, 0, 0, 0, 0, 0, 0, 'n'};
    payload.insert(payload.end(), loc.begin(), loc.end());
    zelkELFHandle h = handleWith(".zelk.dbg.spill", payload);
    const zelkELFSpillInfo spill = zelkELFGetSpillInfo(h);
    ASSERT_EQ(spill.count, i == 6 ? 0u : i + 1u);
    for (uint32_t k = 0; k < spill.count; ++k) {
      const zelkELFSpillLoc& l = spill.locs[k];
      const auto* raw = reinterpret_cast<const uint8_t*>(&l);
      EXPECT_EQ((std::vector<uint32_t>{l.addr, l.index, uint32_t(l.kind), raw[5], raw[6], raw[7]}),
                (std::vector<uint32_t>{k, 10 + k, k, 0, 0, 0}));
    }
    zelkELFFreeSpillInfo(spill);
    zelkELFFree(h);
  }
}

TEST(CapiTest, DebugQueries) {
  ELF elf;
  elf.dbgID = DebugInfoID{1, 7, 65535};
  elf.swpInfo = SWPInfo{{{1}, {2}}};
  elf.cfgInfo = ControlFlowGraph{{{BasicBlockRange{1, 2}, BasicBlockRange{3, 4}},
                                  {BasicBlockRange{5, 6}, BasicBlockRange{7, 8}}}};
  elf.srcInfo = SourceMap{{"main.c", {"a", "bb"}}, {"empty.c", {}}};
  elf.pmSize = 4096;
  elf.setVerifyInfo("");
  zelkELFHandle h = handleOf(elf);
  zelkELFDbgID id = {ZELK_ELF_DBG_ID_KIND_0, 0, 0};
  EXPECT_EQ(zelkELFGetDbgID(h, &id), 1);
  EXPECT_EQ((std::vector<int>{id.kind, id.id0, id.id1}), (std::vector<int>{1, 7, 65535}));
  const zelkELFSWPInfo swp = zelkELFGetSWPInfo(h);
  const zelkELFCFGInfo cfg = zelkELFGetCFGInfo(h);
  const zelkELFSrcList main = zelkELFGetSrcList(h, "main.c");
  const zelkELFSrcList names = zelkELFGetSrcNameList(h);
  EXPECT_TRUE(zelkELFGetSrcList(h, "empty.c").names == nullptr &&
              zelkELFGetSrcList(h, "MAIN.c").count == 0);
  EXPECT_EQ(zelkELFGetPMSize(h), 4096u);
  EXPECT_STREQ(zelkELFGetVerifyInfo(h), "");
  // The strings of a source list live in the handle; the arrays outlive it.
  ASSERT_TRUE(main.count == 2 && names.count == 2);
  EXPECT_EQ(std::string(main.names[0]) + "," + main.names[1], "a,bb");
  EXPECT_EQ(std::set<std::string>(names.names, names.names + 2),
            (std::set<std::string>{"main.c", "empty.c"}));
  zelkELFFree(h);
  ASSERT_TRUE(swp.count == 2 && cfg.count == 2);
  std::vector<uint32_t> values = {swp.locs[0].addr, swp.locs[1].addr};
  for (const zelkELFCFGEdge& e : {cfg.edges[0], cfg.edges[1]}) {
    values.insert(values.end(), {e.first.start, e.first.end, e.second.start, e.second.end});
  }
  EXPECT_EQ(values, (std::vector<uint32_t>{1, 2, 1, 2, 3, 4, 5, 6, 7, 8}));
  zelkELFFreeSWPInfo(swp);
  zelkELFFreeCFGInfo(cfg);
  zelkELFFreeSrcList(main);
  zelkELFFreeSrcList(names);
}

}  // namespace
}  // namespace zelk_elf
