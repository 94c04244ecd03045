// Building and inspecting ELF objects in the internal tests.
#ifndef ZELK_ELF_TESTS_ELF_ELF_TEST_UTIL_H_
#define ZELK_ELF_TESTS_ELF_ELF_TEST_UTIL_H_

#include <string>
#include <vector>

#include "absl/strings/string_view.h"
#include "absl/types/span.h"
#include "elf/internal.h"
#include "elf/test_files.h"
#include "gtest/gtest.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace testing {

inline engine::Section& sectionOf(ELF& elf, absl::string_view name) {
  engine::Section* section = imageOf(elf).findSection(name);
  EXPECT_NE(section, nullptr) << name;
  return *section;
}

inline std::vector<uint8_t> bytesOf(absl::Span<const uint8_t> span) {
  return std::vector<uint8_t>(span.begin(), span.end());
}

inline std::vector<uint8_t> bytesOf(absl::string_view text) {
  return std::vector<uint8_t>(text.begin(), text.end());
}

inline std::vector<std::string> linesOf(
    const std::vector<absl::string_view>& lines) {
  return std::vector<std::string>(lines.begin(), lines.end());
}

// Appends a section even when one of that name exists.
inline engine::Section& addProgbits(ELF& elf, absl::string_view name,
                                    absl::string_view data) {
  engine::Section& section = imageOf(elf).addSection(name);
  section.header.type = engine::kShtProgbits;
  section.setData(reinterpret_cast<const uint8_t*>(data.data()), data.size());
  return section;
}

// Saves `elf`; empty when the save fails (which the caller asserts on).
inline std::vector<uint8_t> saveBytes(ELF& elf) {
  absl::optional<ELF::Image> image = elf.save();
  if (!image.has_value()) return {};
  return std::vector<uint8_t>(image->begin(), image->end());
}

// The object saved and loaded again.
inline ELF reload(ELF& elf) {
  const std::vector<uint8_t> bytes = saveBytes(elf);
  EXPECT_FALSE(bytes.empty());
  absl::optional<ELF> loaded = ELF::load(bytes);
  EXPECT_TRUE(loaded.has_value());
  return loaded.has_value() ? std::move(*loaded) : ELF();
}

// A new image carrying `data` in section `name`, saved and loaded again.
inline absl::optional<ELF> loadWithSection(const std::string& name,
                                           const std::vector<uint8_t>& data) {
  ELF elf;
  elf.setSection(name, data);
  return ELF::load(saveBytes(elf));
}

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_ELF_ELF_TEST_UTIL_H_
