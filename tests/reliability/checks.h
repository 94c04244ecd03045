// Assertions shared by the reliability tests.
#ifndef ZELK_ELF_TESTS_RELIABILITY_CHECKS_H_
#define ZELK_ELF_TESTS_RELIABILITY_CHECKS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "absl/types/span.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace testing {

// `text`, when engaged, views exactly the bytes ".text" holds now, and
// `commentInfo`, when engaged, holds exactly the lines of ".comment" as
// views into its bytes. Every viewed byte is read (for the sanitizers).
void expectViewsConsistent(const ELF& elf);

// The object still works: it saves, and the saved image loads back with the
// debug information of `expected` and the same section names as `elf`.
void expectSavesAndReloads(ELF& elf, const ELF& expected);

// Whether `bytes` hold exactly `expected`.
bool sameBytes(absl::Span<const uint8_t> bytes,
               const std::vector<uint8_t>& expected);

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_RELIABILITY_CHECKS_H_
