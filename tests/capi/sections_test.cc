// Raw sections through the C interface.
#include <cstring>
#include <vector>

#include "capi/capi_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using testing::hexBytes;
using testing::loadHandle;
using testing::ScopedHandle;

std::vector<uint8_t> bytesOf(const zelkELFSection& section) {
  return std::vector<uint8_t>(section.data, section.data + section.size);
}

std::vector<uint8_t> imageWithBss() {
  ELF elf;
  elf.setSection(".bss", {});
  absl::optional<ELF::Image> saved = elf.save();
  std::vector<uint8_t> bytes(saved->begin(), saved->end());
  // Section 2 (.bss): make it SHT_NOBITS of size 4096.
  const uint32_t shoff = testing::readLE(bytes, 32, 4);
  testing::writeLE(bytes, shoff + 2 * 40 + 4, 4, 8);
  testing::writeLE(bytes, shoff + 2 * 40 + 20, 4, 4096);
  return bytes;
}

TEST(CapiSectionsTest, AbsentSection) {
  ScopedHandle handle = testing::handleWith({});
  ASSERT_TRUE(handle);
  const zelkELFSection section = zelkELFGetSection(handle.get(), ".nothing");
  EXPECT_EQ(section.data, nullptr);
  EXPECT_EQ(section.size, 0u);
  EXPECT_EQ(zelkELFGetSectionSize(handle.get(), ".nothing"), 0u);
}

TEST(CapiSectionsTest, NobitsSizeDiffersFromHeldBytes) {
  ScopedHandle handle = loadHandle(imageWithBss());
  ASSERT_TRUE(handle);
  EXPECT_EQ(zelkELFGetSection(handle.get(), ".bss").size, 0u);
  EXPECT_EQ(zelkELFGetSectionSize(handle.get(), ".bss"), 4096u);
}

TEST(CapiSectionsTest, SetSectionCopiesTheBytes) {
  ScopedHandle handle = testing::handleWith({});
  ASSERT_TRUE(handle);
  std::vector<uint8_t> data = hexBytes("0001020304050607");
  zelkELFSetSection(handle.get(), "my", data.data(), data.size());
  const zelkELFSection section = zelkELFGetSection(handle.get(), "my");
  EXPECT_NE(section.data, data.data());
  EXPECT_EQ(bytesOf(section), hexBytes("0001020304050607"));
  EXPECT_EQ(zelkELFGetSectionSize(handle.get(), "my"), 8u);
  data.assign(8, 0xFF);
  EXPECT_EQ(bytesOf(zelkELFGetSection(handle.get(), "my")),
            hexBytes("0001020304050607"));

  zelkELFSetSection(handle.get(), "my", nullptr, 0);
  EXPECT_EQ(zelkELFGetSection(handle.get(), "my").size, 0u);
  EXPECT_EQ(zelkELFGetSectionSize(handle.get(), "my"), 0u);
}

TEST(CapiSectionsTest, EmptyNameIsTheNullSection) {
  ScopedHandle handle = testing::handleWith({});
  ASSERT_TRUE(handle);
  const zelkELFSection section = zelkELFGetSection(handle.get(), "");
  EXPECT_EQ(section.data, nullptr);
  EXPECT_EQ(section.size, 0u);
  EXPECT_EQ(zelkELFGetSectionSize(handle.get(), ""), 0u);
}

TEST(CapiSectionsTest, NamesEndAtTheirFirstNul) {
  ScopedHandle handle = testing::handleWith({{"x", hexBytes("01")}});
  ASSERT_TRUE(handle);
  const char name[] = "x\0y";
  EXPECT_EQ(bytesOf(zelkELFGetSection(handle.get(), name)), hexBytes("01"));
  const uint8_t data[] = {2, 3};
  zelkELFSetSection(handle.get(), name, data, sizeof(data));
  EXPECT_EQ(bytesOf(zelkELFGetSection(handle.get(), "x")), hexBytes("0203"));
  zelkELFBin bin = zelkELFSave(handle.get());
  ELF reloaded = *ELF::load(absl::MakeConstSpan(bin.data, bin.size));
  zelkELFFreeBin(bin);
  EXPECT_FALSE(reloaded.hasSection(std::string("x\0y", 3)));
  EXPECT_EQ(reloaded.getSectionNames().back(), "x");
}

}  // namespace
}  // namespace zelk_elf
