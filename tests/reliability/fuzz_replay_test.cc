// The committed seeds and findings of each fuzz target, replayed through the
// target's own entry point: an input that breaks an invariant aborts.
#include <cstdint>
#include <filesystem>
#include <string>

#include "gtest/gtest.h"
#include "support/test_support.h"

extern "C" int zelk_engine_fuzz(const uint8_t* data, size_t size);
extern "C" int zelk_capi_fuzz(const uint8_t* data, size_t size);
extern "C" int zelk_codec_fuzz(const uint8_t* data, size_t size);

namespace zelk_elf {
namespace testing {
namespace {

TEST(FuzzReplayTest, SeedsAndFindings) {
  const std::pair<const char*, int (*)(const uint8_t*, size_t)> targets[] = {
      {"engine_fuzz", zelk_engine_fuzz},
      {"capi_fuzz", zelk_capi_fuzz},
      {"codec_fuzz", zelk_codec_fuzz}};
  for (const auto& target : targets) {
    size_t replayed = 0;
    for (const char* folder : {"corpus", "findings"}) {
      const std::filesystem::path dir =
          std::filesystem::path(ZELK_ELF_SOURCE_DIR) / "fuzz" / folder / target.first;
      if (!std::filesystem::is_directory(dir)) continue;
      for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        SCOPED_TRACE(entry.path().string());
        const Bytes bytes = readFile(entry.path().string());
        EXPECT_EQ(target.second(bytes.data(), bytes.size()), 0);
        ++replayed;
      }
    }
    EXPECT_GE(replayed, 5u) << target.first;
  }
}

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
