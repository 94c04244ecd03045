// The check that an object is whole after whatever happened to it.
#ifndef ZELK_ELF_TESTS_RELIABILITY_CHECKS_H_
#define ZELK_ELF_TESTS_RELIABILITY_CHECKS_H_

#include <string>
#include <vector>

#include "absl/strings/str_split.h"
#include "gtest/gtest.h"
#include "support/test_support.h"

namespace zelk_elf {
namespace testing {

// `text` views exactly the bytes ".text" holds, and `commentInfo` views the
// lines of ".comment" split at every NUL; every viewed byte is read, so the
// sanitizers see a view into released memory.
inline void expectViewsConsistent(const ELF& elf) {
  volatile uint32_t sum = 0;
  if (elf.text) {
    for (uint8_t b : *elf.text) sum = sum + b;
    EXPECT_TRUE(*elf.text == elf.getSection(".text") &&
                elf.text->data() == elf.getSection(".text").data());
  }
  if (elf.commentInfo) {
    const absl::Span<const uint8_t> bytes = elf.getSection(".comment");
    const absl::string_view all(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const std::vector<absl::string_view> lines =
        bytes.empty() ? std::vector<absl::string_view>{} : absl::StrSplit(all, '\0');
    ASSERT_EQ(elf.commentInfo->size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
      for (char c : (*elf.commentInfo)[i]) sum = sum + c;
      EXPECT_TRUE((*elf.commentInfo)[i].data() == lines[i].data() &&
                  (*elf.commentInfo)[i] == lines[i])
          << i;
    }
  }
}

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_RELIABILITY_CHECKS_H_
