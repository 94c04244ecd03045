// Hostile and damaged images through the C interface: a handle or null,
// never a crash, and every query on a handle stays in bounds.
#include <string>
#include <vector>

#include "capi/capi_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using testing::listShared;
using testing::readShared;

void queryEverything(zelkELFHandle handle, bool save) {
  zelkELFDbgID id;
  (void)zelkELFGetDbgID(handle, &id);
  zelkELFFreeSpillInfo(zelkELFGetSpillInfo(handle));
  zelkELFFreeSWPInfo(zelkELFGetSWPInfo(handle));
  zelkELFFreeCFGInfo(zelkELFGetCFGInfo(handle));
  const zelkELFSrcList names = zelkELFGetSrcNameList(handle);
  for (size_t i = 0; i < names.count; ++i) {
    zelkELFFreeSrcList(zelkELFGetSrcList(handle, names.names[i]));
  }
  zelkELFFreeSrcList(names);
  (void)zelkELFGetPMSize(handle);
  (void)zelkELFGetVerifyInfo(handle);
  for (const char* name : {"", ".text", ".comment", ".zelk.dbg.id"}) {
    const zelkELFSection section = zelkELFGetSection(handle, name);
    volatile uint8_t sink = 0;
    for (size_t i = 0; i < section.size; ++i) sink = sink ^ section.data[i];
    (void)sink;
    (void)zelkELFGetSectionSize(handle, name);
  }
  if (!save) return;
  zelkELFBin bin = zelkELFSave(handle);
  if (bin.size != 0) zelkELFFree(zelkELFLoad(bin.data, bin.size));
  zelkELFFreeBin(bin);
}

void loadAndQuery(const uint8_t* data, size_t size, bool save) {
  zelkELFHandle handle = zelkELFLoad(data, size);
  if (handle != nullptr) queryEverything(handle, save);
  zelkELFFree(handle);
}

TEST(CapiHostileTest, HostileCorpus) {
  for (const std::string& name : listShared("corpus/hostile")) {
    SCOPED_TRACE(name);
    const std::vector<uint8_t> bytes = readShared("corpus/hostile/" + name);
    loadAndQuery(bytes.data(), bytes.size(), /*save=*/true);
  }
}

TEST(CapiHostileTest, RealCorpusLoads) {
  for (const std::string& name : listShared("corpus/real")) {
    SCOPED_TRACE(name);
    const std::vector<uint8_t> bytes = readShared("corpus/real/" + name);
    zelkELFHandle handle = zelkELFLoad(bytes.data(), bytes.size());
    // Its headers are big-endian data marked little-endian.
    EXPECT_EQ(handle != nullptr, name != "null_endianess_convertor");
    if (handle != nullptr) queryEverything(handle, /*save=*/true);
    zelkELFFree(handle);
  }
}

// Damaged layouts may legitimately save to huge images; saving damaged
// images is swept at the class level, where such layouts can be skipped.
TEST(CapiHostileTest, TruncatedAndDamagedImages) {
  const std::vector<uint8_t> image = readShared("corpus/real/hello_32.o");
  ASSERT_FALSE(image.empty());
  for (size_t n = 0; n < image.size(); ++n) {
    loadAndQuery(image.data(), n, /*save=*/false);
  }
  std::vector<uint8_t> damaged = image;
  for (size_t i = 0; i < image.size(); ++i) {
    damaged[i] = static_cast<uint8_t>(~image[i]);
    loadAndQuery(damaged.data(), damaged.size(), /*save=*/false);
    damaged[i] = image[i];
  }
}

}  // namespace
}  // namespace zelk_elf
