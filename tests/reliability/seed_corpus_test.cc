// The fuzzing seeds of capi_fuzz are images built here through the public
// class interface. Set ZELK_ELF_WRITE_SEEDS=<folder> to write them afresh;
// the test always checks that the committed ones still load completely.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "reliability/sample_images.h"
#include "zelk_elf/elf.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace testing {
namespace {

constexpr uint32_t kSeedCount = 24;

std::string seedPath(const std::string& folder, uint32_t variant) {
  char name[32];
  std::snprintf(name, sizeof(name), "/sample-%02u.elf", variant);
  return folder + name;
}

std::vector<uint8_t> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                              std::istreambuf_iterator<char>());
}

bool allNineEngaged(const ELF& elf) {
  return elf.dbgID && elf.spillInfo && elf.swpInfo && elf.cfgInfo &&
         elf.srcInfo && elf.symInfo && elf.pmSize && elf.verifyInfo &&
         elf.latencyInfo;
}

TEST(SeedCorpusTest, SamplesRoundTripWithAllNineSections) {
  const char* out = std::getenv("ZELK_ELF_WRITE_SEEDS");
  for (uint32_t v = 0; v < kSeedCount; ++v) {
    SCOPED_TRACE(::testing::Message() << "variant " << v);
    const ELF built = makeSampleELF(v);
    const std::vector<uint8_t> bytes = makeSampleImage(v);
    ASSERT_FALSE(bytes.empty());
    absl::optional<ELF> loaded = ELF::load(bytes);
    ASSERT_TRUE(loaded.has_value());
    EXPECT_TRUE(allNineEngaged(*loaded));
    EXPECT_TRUE(sameDebugInfo(*loaded, built));
    ASSERT_TRUE(loaded->text.has_value());
    EXPECT_EQ(std::vector<uint8_t>(loaded->text->begin(), loaded->text->end()),
              std::vector<uint8_t>(built.text->begin(), built.text->end()));
    if (out != nullptr) {
      std::ofstream file(seedPath(out, v), std::ios::binary);
      file.write(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::streamsize>(bytes.size()));
      ASSERT_TRUE(file.good());
    }
  }
}

TEST(SeedCorpusTest, CommittedSeedsLoadThroughTheCInterface) {
  const std::string folder =
      std::string(ZELK_ELF_SOURCE_DIR) + "/fuzz/corpus/capi_fuzz";
  for (uint32_t v = 0; v < kSeedCount; ++v) {
    SCOPED_TRACE(seedPath(folder, v));
    const std::vector<uint8_t> bytes = readFile(seedPath(folder, v));
    ASSERT_FALSE(bytes.empty());
    zelkELFHandle h = zelkELFLoad(bytes.data(), bytes.size());
    ASSERT_NE(h, nullptr);
    EXPECT_TRUE(allNineEngaged(*reinterpret_cast<const ELF*>(h)));
    EXPECT_NE(zelkELFGetVerifyInfo(h), nullptr);
    zelkELFFree(h);
  }
}

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
