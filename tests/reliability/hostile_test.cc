// Damaged and hostile images through the class: load refuses, or every
// operation works with its views inside their sections (the sanitizers see
// any read out of bounds). And each fuzz target's seeds and findings,
// replayed through its own entry point, which aborts on a broken invariant.
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "elf/internal.h"
#include "gtest/gtest.h"
#include "support/test_support.h"

extern "C" int zelk_engine_fuzz(const uint8_t* data, size_t size);
extern "C" int zelk_capi_fuzz(const uint8_t* data, size_t size);
extern "C" int zelk_codec_fuzz(const uint8_t* data, size_t size);

namespace zelk_elf {
namespace testing {
namespace {

// Larger saves (far addresses, huge alignments) are the engine tests' matter.
constexpr uint64_t kMaxSaved = 4 << 20;

void exercise(ELF& elf) {
  for (const std::string& name : elf.getSectionNames()) {
    EXPECT_LE(elf.getSection(name).size(), elf.getSectionSize(name)) << name;
  }
  (void)elf.getTextAddr();
  expectViewsConsistent(elf);
  const absl::StatusOr<uint64_t> size = imageOf(elf).savedSize();
  if (!size.ok() || *size > kMaxSaved) return;
  if (absl::optional<ELF::Image> saved = elf.save()) ELF::load(*saved);
  elf.setSection(".zelk.dbg.pmsize", {0, 0x10, 0, 0});
  elf.setText(std::vector<uint8_t>(8, 1), 4);
  elf.setCommentInfo({"edited", "", "lines"});
  expectViewsConsistent(elf);
  if (imageOf(elf).savedSize().value_or(kMaxSaved + 1) <= kMaxSaved) elf.save();
}

size_t loadAndExercise(absl::Span<const uint8_t> bytes) {
  absl::optional<ELF> elf = ELF::load(bytes);
  if (elf) exercise(*elf);
  return elf ? 1 : 0;
}

TEST(HostileTest, HostileCorpus) {
  for (const std::string& path : listShared("corpus/hostile")) {
    SCOPED_TRACE(path);
    loadAndExercise(readFile(path));
  }
}

// Small images of other producers, and one with all nine debug payloads.
TEST(HostileTest, PrefixesAndCorruptions) {
  ELF rich = richELF();
  for (const Bytes& image :
       {readShared("corpus/real/hello_32.o"), readShared("corpus/real/test_ppc.o"),
        readShared("corpus/real/asm"), saveBytes(rich)}) {
    SCOPED_TRACE(image.size());
    size_t loaded = 0;
    for (size_t n = 0; n <= image.size(); ++n) loaded += loadAndExercise({image.data(), n});
    EXPECT_GT(loaded, 0u);
    Bytes damaged = image;
    for (size_t i = 0; i < image.size(); ++i) {
      for (uint8_t value :
           {uint8_t{0}, uint8_t{0xFF}, uint8_t(image[i] ^ 0x80), uint8_t(image[i] + 1)}) {
        damaged[i] = value;
        loadAndExercise(damaged);
      }
      damaged[i] = image[i];
    }
  }
}

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
