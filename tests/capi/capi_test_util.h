// Images and handle ownership for tests of the C interface.
#ifndef ZELK_ELF_TESTS_CAPI_CAPI_TEST_UTIL_H_
#define ZELK_ELF_TESTS_CAPI_CAPI_TEST_UTIL_H_

#include <string>
#include <utility>
#include <vector>

#include "elf/test_files.h"
#include "gtest/gtest.h"
#include "zelk_elf/elf.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace testing {

// Frees its handle at the end of the scope.
class ScopedHandle {
 public:
  explicit ScopedHandle(zelkELFHandle handle) : handle_(handle) {}
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;
  ~ScopedHandle() { zelkELFFree(handle_); }
  zelkELFHandle get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

 private:
  zelkELFHandle handle_;
};

inline ScopedHandle loadHandle(const std::vector<uint8_t>& bytes) {
  return ScopedHandle(zelkELFLoad(bytes.data(), bytes.size()));
}

// A new image holding these sections, as bytes.
inline std::vector<uint8_t> imageWith(
    const std::vector<std::pair<std::string, std::vector<uint8_t>>>&
        sections) {
  ELF elf;
  for (const auto& section : sections) {
    elf.setSection(section.first, section.second);
  }
  absl::optional<ELF::Image> saved = elf.save();
  EXPECT_TRUE(saved.has_value());
  if (!saved.has_value()) return {};
  return std::vector<uint8_t>(saved->begin(), saved->end());
}

inline ScopedHandle handleWith(
    const std::vector<std::pair<std::string, std::vector<uint8_t>>>&
        sections) {
  return loadHandle(imageWith(sections));
}

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_CAPI_CAPI_TEST_UTIL_H_
