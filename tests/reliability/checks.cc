#include "reliability/checks.h"

#include <cstring>

#include "gtest/gtest.h"
#include "reliability/sample_images.h"

namespace zelk_elf {
namespace testing {
namespace {

// The ".comment" format: split at every NUL, empty pieces kept; a section
// without bytes has no lines.
std::vector<absl::string_view> splitLines(absl::Span<const uint8_t> data) {
  std::vector<absl::string_view> lines;
  if (data.data() == nullptr) return lines;
  const char* begin = reinterpret_cast<const char*>(data.data());
  const char* end = begin + data.size();
  const char* start = begin;
  for (const char* p = begin; p != end; ++p) {
    if (*p == '\0') {
      lines.emplace_back(start, static_cast<size_t>(p - start));
      start = p + 1;
    }
  }
  lines.emplace_back(start, static_cast<size_t>(end - start));
  return lines;
}

}  // namespace

void expectViewsConsistent(const ELF& elf) {
  volatile uint32_t sink = touchViews(elf);
  (void)sink;
  if (elf.text.has_value()) {
    ASSERT_TRUE(elf.hasSection(".text"));
    const absl::Span<const uint8_t> bytes = elf.getSection(".text");
    EXPECT_EQ(elf.text->data(), bytes.data());
    EXPECT_EQ(elf.text->size(), bytes.size());
  }
  if (elf.commentInfo.has_value()) {
    const std::vector<absl::string_view> lines =
        splitLines(elf.getSection(".comment"));
    ASSERT_EQ(elf.commentInfo->size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
      EXPECT_EQ((*elf.commentInfo)[i].data(), lines[i].data()) << "line " << i;
      EXPECT_EQ((*elf.commentInfo)[i].size(), lines[i].size()) << "line " << i;
    }
  }
}

void expectSavesAndReloads(ELF& elf, const ELF& expected) {
  absl::optional<ELF::Image> image = elf.save();
  ASSERT_TRUE(image.has_value()) << "save failed after the failure";
  absl::optional<ELF> reloaded =
      ELF::load(absl::MakeConstSpan(image->data(), image->size()));
  ASSERT_TRUE(reloaded.has_value()) << "saved image does not load";
  EXPECT_TRUE(sameDebugInfo(*reloaded, expected));
  EXPECT_EQ(reloaded->getSectionNames(), elf.getSectionNames());
  expectViewsConsistent(elf);
  expectViewsConsistent(*reloaded);
}

bool sameBytes(absl::Span<const uint8_t> bytes,
               const std::vector<uint8_t>& expected) {
  return bytes.size() == expected.size() &&
         (expected.empty() ||
          std::memcmp(bytes.data(), expected.data(), expected.size()) == 0);
}

}  // namespace testing
}  // namespace zelk_elf
