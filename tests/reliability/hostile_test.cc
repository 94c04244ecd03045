// One sweep of damaged and hostile images through the class: the hostile
// corpus, every prefix of small images, every byte of their headers and of
// the debug payloads corrupted. Load refuses, or gives an object that every
// operation can use with its views inside their sections. The sanitizer
// build turns any read out of bounds into a failure.
#include <string>
#include <vector>

#include "elf/internal.h"
#include "gtest/gtest.h"
#include "reliability/checks.h"
#include "support/test_support.h"

namespace zelk_elf {
namespace testing {
namespace {

// Layouts that legitimately save to images of this size and more (far
// addresses, huge alignments) are saved by the engine's own tests.
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

TEST(HostileTest, CorporaLoadOrAreRefused) {
  for (const std::string& path : listShared("corpus/hostile")) {
    SCOPED_TRACE(path);
    loadAndExercise(readFile(path));
  }
  for (const std::string& path : listShared("corpus/real")) {
    SCOPED_TRACE(path);
    // Its headers are big-endian data marked little-endian: segments claim
    // bytes far beyond the file.
    const bool loads = path.find("null_endianess_convertor") == std::string::npos;
    EXPECT_EQ(loadAndExercise(readFile(path)), loads ? 1u : 0u);
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

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
