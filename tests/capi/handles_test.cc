// Handles, the version and the load refusals of the C interface.
#include <cstring>
#include <string>
#include <vector>

#include "capi/capi_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using testing::loadHandle;
using testing::readShared;
using testing::ScopedHandle;

// Every function that takes a handle accepts a null one and gives its empty
// result; the free functions accept their empty records.
TEST(HandlesTest, NullHandleGivesTheEmptyResult) {
  struct Row {
    const char* function;
    bool (*empty)();  // calls the function on a null handle
  };
  const Row rows[] = {
      {"zelkELFFree", [] { zelkELFFree(nullptr); return true; }},
      {"zelkELFGetSection",
       [] {
         const zelkELFSection s = zelkELFGetSection(nullptr, ".text");
         return s.data == nullptr && s.size == 0;
       }},
      {"zelkELFGetSectionSize",
       [] { return zelkELFGetSectionSize(nullptr, "") == 0; }},
      {"zelkELFSetSection",
       [] {
         static const uint8_t kByte = 1;
         zelkELFSetSection(nullptr, ".x", &kByte, 1);
         return true;
       }},
      {"zelkELFGetDbgID",
       [] {
         zelkELFDbgID id = {ZELK_ELF_DBG_ID_KIND_1, 7, 9};
         return zelkELFGetDbgID(nullptr, &id) == 0 && id.id0 == 7 &&
                id.id1 == 9;
       }},
      {"zelkELFGetSpillInfo",
       [] {
         const zelkELFSpillInfo i = zelkELFGetSpillInfo(nullptr);
         return i.locs == nullptr && i.count == 0;
       }},
      {"zelkELFGetSWPInfo",
       [] {
         const zelkELFSWPInfo i = zelkELFGetSWPInfo(nullptr);
         return i.locs == nullptr && i.count == 0;
       }},
      {"zelkELFGetCFGInfo",
       [] {
         const zelkELFCFGInfo i = zelkELFGetCFGInfo(nullptr);
         return i.edges == nullptr && i.count == 0;
       }},
      {"zelkELFGetSrcList",
       [] {
         const zelkELFSrcList l = zelkELFGetSrcList(nullptr, "main.c");
         return l.names == nullptr && l.count == 0;
       }},
      {"zelkELFGetSrcNameList",
       [] {
         const zelkELFSrcList l = zelkELFGetSrcNameList(nullptr);
         return l.names == nullptr && l.count == 0;
       }},
      {"zelkELFGetPMSize", [] { return zelkELFGetPMSize(nullptr) == 0; }},
      {"zelkELFGetVerifyInfo",
       [] { return zelkELFGetVerifyInfo(nullptr) == nullptr; }},
      {"zelkELFSave",
       [] {
         const zelkELFBin b = zelkELFSave(nullptr);
         return b.data == nullptr && b.size == 0;
       }},
      {"zelkELFFreeSpillInfo",
       [] { zelkELFFreeSpillInfo({nullptr, 0}); return true; }},
      {"zelkELFFreeSWPInfo", [] { zelkELFFreeSWPInfo({nullptr, 0}); return true; }},
      {"zelkELFFreeCFGInfo", [] { zelkELFFreeCFGInfo({nullptr, 0}); return true; }},
      {"zelkELFFreeSrcList", [] { zelkELFFreeSrcList({nullptr, 0}); return true; }},
      {"zelkELFFreeBin", [] { zelkELFFreeBin({nullptr, 0}); return true; }},
  };
  for (const Row& row : rows) EXPECT_TRUE(row.empty()) << row.function;
}

// Null names and a null record pointer are refused like an absent section.
TEST(HandlesTest, NullArgumentsGiveTheEmptyResult) {
  ScopedHandle handle = testing::handleWith({{".x", {1, 2}}});
  ASSERT_TRUE(handle);
  EXPECT_EQ(zelkELFGetSection(handle.get(), nullptr).data, nullptr);
  EXPECT_EQ(zelkELFGetSectionSize(handle.get(), nullptr), 0u);
  zelkELFSetSection(handle.get(), nullptr, nullptr, 0);
  EXPECT_EQ(zelkELFGetSrcList(handle.get(), nullptr).names, nullptr);
  EXPECT_EQ(zelkELFGetDbgID(handle.get(), nullptr), 0);
  EXPECT_EQ(zelkELFGetSectionSize(handle.get(), ".x"), 2u);
}

TEST(HandlesTest, Version) {
  zelkELFVersion(nullptr, nullptr, nullptr, nullptr);
  uint32_t major = 9, minor = 9, patch = 9;
  const char* text = nullptr;
  zelkELFVersion(&major, &minor, &patch, &text);
  EXPECT_EQ(major, 1u);
  EXPECT_EQ(minor, 2u);
  EXPECT_EQ(patch, 0u);
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "unknown");
  const char* again = nullptr;
  zelkELFVersion(nullptr, nullptr, nullptr, &again);
  EXPECT_EQ(again, text);
  uint32_t only_minor = 0;
  zelkELFVersion(nullptr, &only_minor, nullptr, nullptr);
  EXPECT_EQ(only_minor, 2u);
}

TEST(HandlesTest, NonImagesGiveNull) {
  EXPECT_EQ(zelkELFLoad(nullptr, 0), nullptr);
  const uint8_t text[] = "this is not an ELF image at all";
  EXPECT_EQ(zelkELFLoad(text, sizeof(text)), nullptr);
  const std::vector<uint8_t> image = readShared("corpus/real/hello_32");
  EXPECT_EQ(zelkELFLoad(image.data(), 15), nullptr);
}

TEST(HandlesTest, TwoLoadsAreIndependent) {
  const std::vector<uint8_t> image = readShared("corpus/real/hello_32");
  zelkELFHandle first = zelkELFLoad(image.data(), image.size());
  ScopedHandle second = loadHandle(image);
  ASSERT_NE(first, nullptr);
  ASSERT_TRUE(second);
  EXPECT_NE(first, second.get());
  zelkELFSetSection(first, ".text", nullptr, 0);
  EXPECT_EQ(zelkELFGetSectionSize(first, ".text"), 0u);
  zelkELFFree(first);
  const zelkELFSection text = zelkELFGetSection(second.get(), ".text");
  EXPECT_GT(text.size, 0u);
  EXPECT_EQ(zelkELFGetSectionSize(second.get(), ".text"), text.size);
}

TEST(HandlesTest, InputBufferMayBeReleasedAfterLoad) {
  std::vector<uint8_t> image = readShared("corpus/real/hello_32");
  ScopedHandle handle = loadHandle(image);
  ASSERT_TRUE(handle);
  const zelkELFSection before = zelkELFGetSection(handle.get(), ".interp");
  ASSERT_GT(before.size, 0u);
  const std::string interp(reinterpret_cast<const char*>(before.data),
                           before.size);
  std::memset(image.data(), 0xEE, image.size());
  image = std::vector<uint8_t>();
  const zelkELFSection after = zelkELFGetSection(handle.get(), ".interp");
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(after.data), after.size),
            interp);
}

}  // namespace
}  // namespace zelk_elf
