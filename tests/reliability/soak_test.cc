// Thousands of loads, edits and saves of varied images in one process: the
// heap must come back to where it started, so nothing accumulates.
#include <cstdint>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "reliability/alloc_hook.h"
#include "reliability/checks.h"
#include "reliability/sample_images.h"
#include "zelk_elf/elf.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace testing {
namespace {

constexpr uint32_t kImages = 48;
constexpr uint32_t kRounds = 5000;

// One round of class work on image `bytes`, varied by `round`.
void classRound(const std::vector<uint8_t>& bytes, uint32_t round) {
  absl::optional<ELF> loaded = ELF::load(bytes);
  ASSERT_TRUE(loaded.has_value());
  ELF elf = std::move(*loaded);
  const std::vector<uint8_t> code(round % 97, static_cast<uint8_t>(round));
  switch (round % 5) {
    case 0:
      elf.setText(code, 1u << (round % 7));
      break;
    case 1: {
      const std::string line = "round " + std::to_string(round);
      elf.setCommentInfo({line, "", "soak"});
      break;
    }
    case 2:
      elf.setSection(".zelk.soak." + std::to_string(round % 3), code);
      break;
    case 3:
      elf.spillInfo.reset();
      elf.pmSize = round;
      elf.setVerifyInfo(std::string(round % 50, 'v'));
      break;
    default:
      elf.setSection(".text", code);
      elf.setSection(".comment", code);
      break;
  }
  expectViewsConsistent(elf);
  absl::optional<ELF::Image> image = elf.save();
  ASSERT_TRUE(image.has_value());
  absl::optional<ELF> again =
      ELF::load(absl::MakeConstSpan(image->data(), image->size()));
  ASSERT_TRUE(again.has_value());
  if (round % 5 != 3) {
    EXPECT_TRUE(sameDebugInfo(*again, elf));
  }
  EXPECT_EQ(again->pmSize, elf.pmSize);
}

// One round through the C interface. Odd rounds change one byte of the
// image first, so the refusing paths run as well; those images are not
// saved, since a changed size or offset may rightly ask for gigabytes.
void capiRound(std::vector<uint8_t> bytes, uint32_t round) {
  const bool damaged = round % 2 == 1;
  if (damaged) {
    bytes[(round * 2654435761u) % bytes.size()] ^=
        static_cast<uint8_t>(round | 1);
  }
  zelkELFHandle h = zelkELFLoad(bytes.data(), bytes.size());
  if (h == nullptr) return;
  zelkELFFreeSpillInfo(zelkELFGetSpillInfo(h));
  zelkELFFreeSWPInfo(zelkELFGetSWPInfo(h));
  zelkELFFreeCFGInfo(zelkELFGetCFGInfo(h));
  zelkELFSrcList names = zelkELFGetSrcNameList(h);
  for (size_t i = 0; i < names.count; ++i) {
    zelkELFFreeSrcList(zelkELFGetSrcList(h, names.names[i]));
  }
  zelkELFFreeSrcList(names);
  if (damaged) {
    zelkELFFree(h);
    return;
  }
  zelkELFSetSection(h, ".zelk.soak", bytes.data(), round % 200);
  zelkELFBin bin = zelkELFSave(h);
  ASSERT_NE(bin.data, nullptr);
  zelkELFHandle again = zelkELFLoad(bin.data, bin.size);
  EXPECT_NE(again, nullptr);
  zelkELFFree(again);
  zelkELFFreeBin(bin);
  zelkELFFree(h);
}

TEST(SoakTest, ManyImagesLeaveTheHeapAsTheyFoundIt) {
  std::vector<std::vector<uint8_t>> images;
  for (uint32_t v = 0; v < kImages; ++v) {
    images.push_back(makeSampleImage(v));
    ASSERT_FALSE(images.back().empty());
  }
  // The first round of each kind does the runtime's one-time allocations.
  for (uint32_t round = 0; round < 5; ++round) {
    classRound(images[round], round);
    capiRound(images[round], round);
  }
  const int64_t start = liveBlocks();
  for (uint32_t round = 0; round < kRounds; ++round) {
    classRound(images[round % kImages], round);
    capiRound(images[(round * 7) % kImages], round);
    ASSERT_FALSE(::testing::Test::HasFailure()) << "in round " << round;
    if (round % 250 == 0) {
      ASSERT_EQ(liveBlocks(), start) << "heap grows, round " << round;
    }
  }
  EXPECT_EQ(liveBlocks(), start);
}

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
