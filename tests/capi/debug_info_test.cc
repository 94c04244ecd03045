// Debug-information queries of the C interface.
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "capi/capi_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using testing::handleWith;
using testing::hexBytes;
using testing::ScopedHandle;

// One spill location of the ".zelk.dbg.spill" payload, name "n".
std::string spillLoc(uint32_t addr, uint8_t index, uint8_t kind) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(addr >> (8 * i)));
  bytes.push_back(static_cast<char>(index));
  bytes.push_back(static_cast<char>(kind));
  bytes.append(std::string("\x01\0\0\0\0\0\0\0", 8));
  bytes.push_back('n');
  return bytes;
}

std::vector<uint8_t> toBytes(const std::string& s) {
  return std::vector<uint8_t>(s.begin(), s.end());
}

TEST(CapiDebugInfoTest, NoDebugSectionsGivesEmptyResults) {
  ScopedHandle handle = handleWith({});
  ASSERT_TRUE(handle);
  zelkELFDbgID id = {ZELK_ELF_DBG_ID_KIND_1, 5, 6};
  EXPECT_EQ(zelkELFGetDbgID(handle.get(), &id), 0);
  EXPECT_EQ(id.id0, 5);

  const zelkELFSpillInfo spill = zelkELFGetSpillInfo(handle.get());
  EXPECT_EQ(spill.locs, nullptr);
  EXPECT_EQ(spill.count, 0u);
  const zelkELFSWPInfo swp = zelkELFGetSWPInfo(handle.get());
  EXPECT_EQ(swp.locs, nullptr);
  EXPECT_EQ(swp.count, 0u);
  const zelkELFCFGInfo cfg = zelkELFGetCFGInfo(handle.get());
  EXPECT_EQ(cfg.edges, nullptr);
  EXPECT_EQ(cfg.count, 0u);
  const zelkELFSrcList names = zelkELFGetSrcNameList(handle.get());
  EXPECT_EQ(names.names, nullptr);
  EXPECT_EQ(names.count, 0u);
  const zelkELFSrcList list = zelkELFGetSrcList(handle.get(), "main.c");
  EXPECT_EQ(list.names, nullptr);
  EXPECT_EQ(list.count, 0u);
  EXPECT_EQ(zelkELFGetPMSize(handle.get()), 0u);
  EXPECT_EQ(zelkELFGetVerifyInfo(handle.get()), nullptr);
}

TEST(CapiDebugInfoTest, NullHandleForPmSizeAndVerifyInfo) {
  EXPECT_EQ(zelkELFGetPMSize(nullptr), 0u);
  EXPECT_EQ(zelkELFGetVerifyInfo(nullptr), nullptr);
}

TEST(CapiDebugInfoTest, FreeFunctionsAcceptEmptyRecords) {
  zelkELFFreeSpillInfo(zelkELFSpillInfo{nullptr, 0});
  zelkELFFreeSWPInfo(zelkELFSWPInfo{nullptr, 0});
  zelkELFFreeCFGInfo(zelkELFCFGInfo{nullptr, 0});
  zelkELFFreeSrcList(zelkELFSrcList{nullptr, 0});
  zelkELFFreeBin(zelkELFBin{nullptr, 0});
}

TEST(CapiDebugInfoTest, DebugIdKinds) {
  ScopedHandle one = handleWith({{".zelk.dbg.id", hexBytes("010700ffff")}});
  ASSERT_TRUE(one);
  zelkELFDbgID id = {ZELK_ELF_DBG_ID_KIND_0, 0, 0};
  ASSERT_EQ(zelkELFGetDbgID(one.get(), &id), 1);
  EXPECT_EQ(id.kind, ZELK_ELF_DBG_ID_KIND_1);
  EXPECT_EQ(id.id0, 7);
  EXPECT_EQ(id.id1, 65535);

  ScopedHandle two = handleWith({{".zelk.dbg.id", hexBytes("0201000200")}});
  ASSERT_TRUE(two);
  EXPECT_EQ(zelkELFGetDbgID(two.get(), &id), 0);
  EXPECT_EQ(id.kind, ZELK_ELF_DBG_ID_KIND_1);
  EXPECT_EQ(id.id0, 7);
  EXPECT_EQ(id.id1, 65535);
}

TEST(CapiDebugInfoTest, EmptySpillSectionGivesEmptyRecord) {
  ScopedHandle handle = handleWith({{".zelk.dbg.spill", {}}});
  ASSERT_TRUE(handle);
  const zelkELFSpillInfo spill = zelkELFGetSpillInfo(handle.get());
  EXPECT_EQ(spill.locs, nullptr);
  EXPECT_EQ(spill.count, 0u);
}

TEST(CapiDebugInfoTest, SpillLocationsInOrderWithZeroPadding) {
  std::string payload;
  for (uint8_t kind = 0; kind <= 5; ++kind) {
    payload += spillLoc(0x1000u + kind, static_cast<uint8_t>(10 + kind), kind);
  }
  ScopedHandle handle = handleWith({{".zelk.dbg.spill", toBytes(payload)}});
  ASSERT_TRUE(handle);
  const zelkELFSpillInfo spill = zelkELFGetSpillInfo(handle.get());
  ASSERT_EQ(spill.count, 6u);
  ASSERT_NE(spill.locs, nullptr);
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(spill.locs[i].addr, 0x1000u + i);
    EXPECT_EQ(spill.locs[i].index, 10 + i);
    EXPECT_EQ(static_cast<size_t>(spill.locs[i].kind), i);
    const auto* raw = reinterpret_cast<const uint8_t*>(&spill.locs[i]);
    EXPECT_EQ(raw[5], 0);
    EXPECT_EQ(raw[6], 0);
    EXPECT_EQ(raw[7], 0);
  }
  zelkELFFreeSpillInfo(spill);
}

TEST(CapiDebugInfoTest, OneUndefinedSpillKindHidesTheWholeList) {
  const std::string payload = spillLoc(1, 0, 0) + spillLoc(2, 0, 6) +
                              spillLoc(3, 0, 5);
  ScopedHandle handle = handleWith({{".zelk.dbg.spill", toBytes(payload)}});
  ASSERT_TRUE(handle);
  const zelkELFSpillInfo spill = zelkELFGetSpillInfo(handle.get());
  EXPECT_EQ(spill.locs, nullptr);
  EXPECT_EQ(spill.count, 0u);
}

TEST(CapiDebugInfoTest, SwpAndCfgCopiesOutliveTheHandle) {
  const std::vector<uint8_t> image = testing::imageWith(
      {{".zelk.dbg.swp", hexBytes("0100000002000000")},
       {".zelk.dbg.cfg", hexBytes("0100000002000000030000000400000005000000"
                                  "060000000700000008000000")}});
  zelkELFHandle handle = zelkELFLoad(image.data(), image.size());
  ASSERT_NE(handle, nullptr);
  const zelkELFSWPInfo swp = zelkELFGetSWPInfo(handle);
  const zelkELFCFGInfo cfg = zelkELFGetCFGInfo(handle);
  zelkELFFree(handle);

  ASSERT_EQ(swp.count, 2u);
  EXPECT_EQ(swp.locs[0].addr, 1u);
  EXPECT_EQ(swp.locs[1].addr, 2u);
  ASSERT_EQ(cfg.count, 2u);
  EXPECT_EQ(cfg.edges[0].first.start, 1u);
  EXPECT_EQ(cfg.edges[0].first.end, 2u);
  EXPECT_EQ(cfg.edges[0].second.start, 3u);
  EXPECT_EQ(cfg.edges[0].second.end, 4u);
  EXPECT_EQ(cfg.edges[1].first.start, 5u);
  EXPECT_EQ(cfg.edges[1].first.end, 6u);
  EXPECT_EQ(cfg.edges[1].second.start, 7u);
  EXPECT_EQ(cfg.edges[1].second.end, 8u);
  zelkELFFreeSWPInfo(swp);
  zelkELFFreeCFGInfo(cfg);
}

// Source map {"main.c": ["a", "bb"], "empty.c": [], "util.c": ["u"]}.
std::vector<uint8_t> sourceMapPayload() {
  return hexBytes(
      "0300000000000000"
      "06000000000000006d61696e2e63"  // "main.c"
      "0200000000000000"
      "010000000000000061"            // "a"
      "02000000000000006262"          // "bb"
      "0700000000000000656d7074792e63"  // "empty.c"
      "0000000000000000"
      "06000000000000007574696c2e63"  // "util.c"
      "0100000000000000"
      "010000000000000075");          // "u"
}

TEST(CapiDebugInfoTest, SourceLists) {
  ScopedHandle handle = handleWith({{".zelk.dbg.src", sourceMapPayload()}});
  ASSERT_TRUE(handle);
  const zelkELFSrcList main = zelkELFGetSrcList(handle.get(), "main.c");
  ASSERT_EQ(main.count, 2u);
  EXPECT_STREQ(main.names[0], "a");
  EXPECT_STREQ(main.names[1], "bb");
  zelkELFFreeSrcList(main);

  const zelkELFSrcList empty = zelkELFGetSrcList(handle.get(), "empty.c");
  EXPECT_EQ(empty.names, nullptr);
  EXPECT_EQ(empty.count, 0u);
  const zelkELFSrcList other_case = zelkELFGetSrcList(handle.get(), "MAIN.c");
  EXPECT_EQ(other_case.names, nullptr);
  EXPECT_EQ(other_case.count, 0u);

  const zelkELFSrcList names = zelkELFGetSrcNameList(handle.get());
  ASSERT_EQ(names.count, 3u);
  std::set<const char*> pointers(names.names, names.names + names.count);
  EXPECT_EQ(pointers.size(), 3u);
  std::set<std::string> keys(names.names, names.names + names.count);
  EXPECT_EQ(keys, (std::set<std::string>{"main.c", "empty.c", "util.c"}));
  zelkELFFreeSrcList(names);
}

TEST(CapiDebugInfoTest, EmptySourceMapGivesEmptyNameList) {
  ScopedHandle handle =
      handleWith({{".zelk.dbg.src", hexBytes("0000000000000000")}});
  ASSERT_TRUE(handle);
  const zelkELFSrcList names = zelkELFGetSrcNameList(handle.get());
  EXPECT_EQ(names.names, nullptr);
  EXPECT_EQ(names.count, 0u);
}

TEST(CapiDebugInfoTest, PmSizeAndVerifyInfo) {
  ScopedHandle handle =
      handleWith({{".zelk.dbg.pmsize", hexBytes("00100000")},
                  {".zelk.dbg.verifyinfo", hexBytes("02000000000000006f6b")}});
  ASSERT_TRUE(handle);
  EXPECT_EQ(zelkELFGetPMSize(handle.get()), 4096u);
  EXPECT_STREQ(zelkELFGetVerifyInfo(handle.get()), "ok");

  ScopedHandle empty =
      handleWith({{".zelk.dbg.verifyinfo", hexBytes("0000000000000000")}});
  ASSERT_TRUE(empty);
  const char* text = zelkELFGetVerifyInfo(empty.get());
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "");
}

}  // namespace
}  // namespace zelk_elf
