// Saving through the C interface.
#include <cstring>
#include <vector>

#include "capi/capi_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using testing::loadHandle;
using testing::readShared;
using testing::ScopedHandle;

TEST(CapiSaveTest, SavedImageLoadsAgain) {
  ScopedHandle handle = loadHandle(readShared("corpus/real/hello_32"));
  ASSERT_TRUE(handle);
  zelkELFBin bin = zelkELFSave(handle.get());
  ASSERT_NE(bin.data, nullptr);
  ASSERT_GT(bin.size, 52u);
  ScopedHandle again(zelkELFLoad(bin.data, bin.size));
  EXPECT_TRUE(again);
  EXPECT_EQ(zelkELFGetSectionSize(again.get(), ".text"),
            zelkELFGetSectionSize(handle.get(), ".text"));
  zelkELFFreeBin(bin);
}

TEST(CapiSaveTest, EverySaveHandsOutItsOwnBuffer) {
  ScopedHandle handle = testing::handleWith({{"x", {1, 2, 3}}});
  ASSERT_TRUE(handle);
  zelkELFBin first = zelkELFSave(handle.get());
  zelkELFBin second = zelkELFSave(handle.get());
  ASSERT_NE(first.data, nullptr);
  ASSERT_NE(second.data, nullptr);
  EXPECT_NE(first.data, second.data);
  ASSERT_EQ(first.size, second.size);
  const std::vector<uint8_t> copy(second.data, second.data + second.size);
  zelkELFFreeBin(first);
  EXPECT_EQ(std::vector<uint8_t>(second.data, second.data + second.size), copy);
  zelkELFFreeBin(second);
}

TEST(CapiSaveTest, BufferOutlivesTheHandle) {
  const std::vector<uint8_t> image = testing::imageWith({{"x", {9}}});
  zelkELFHandle handle = zelkELFLoad(image.data(), image.size());
  ASSERT_NE(handle, nullptr);
  zelkELFBin bin = zelkELFSave(handle);
  zelkELFFree(handle);
  ASSERT_EQ(bin.size, image.size());
  EXPECT_EQ(std::memcmp(bin.data, image.data(), image.size()), 0);
  zelkELFFreeBin(bin);
}

TEST(CapiSaveTest, SetSectionReachesTheSavedImage) {
  ScopedHandle handle = testing::handleWith({});
  ASSERT_TRUE(handle);
  const uint8_t pm[] = {0x00, 0x20, 0x00, 0x00};
  zelkELFSetSection(handle.get(), ".zelk.dbg.pmsize", pm, sizeof(pm));
  zelkELFBin bin = zelkELFSave(handle.get());
  ScopedHandle again(zelkELFLoad(bin.data, bin.size));
  zelkELFFreeBin(bin);
  ASSERT_TRUE(again);
  EXPECT_EQ(zelkELFGetPMSize(again.get()), 0x2000u);
}

}  // namespace
}  // namespace zelk_elf
