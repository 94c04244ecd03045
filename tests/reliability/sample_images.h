// Images built through the public class interface, with all nine debug
// sections filled, for the sweeps, the soak test and the fuzzing seeds.
#ifndef ZELK_ELF_TESTS_RELIABILITY_SAMPLE_IMAGES_H_
#define ZELK_ELF_TESTS_RELIABILITY_SAMPLE_IMAGES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace testing {

// An object whose every debug field is engaged, with `.text`, `.comment` and
// a few raw sections. Variant 0 is the rich image of the sweeps: every list
// non-empty, every kind defined, strings both short and long (beyond the
// small-string buffer). Other variants differ in sizes, contents and in some
// edge values (engaged empty lists, undefined kinds, empty strings) chosen
// from `variant` deterministically.
ELF makeSampleELF(uint32_t variant);

// makeSampleELF(variant) saved to bytes; empty if saving failed.
std::vector<uint8_t> makeSampleImage(uint32_t variant);

// Whether two objects hold the same nine decoded debug fields.
bool sameDebugInfo(const ELF& a, const ELF& b);

// Reads every byte that `text` and `commentInfo` view, so a sanitizer build
// reports a view into released memory. Returns a checksum to keep the reads.
uint32_t touchViews(const ELF& elf);

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_RELIABILITY_SAMPLE_IMAGES_H_
