// The one door through which the library's own tools, tests, fuzzers and the
// Python module reach past the public face: the engine image behind an
// object, and load and save with the reason of a failure. The public face
// stays silent by contract; these say what failed and where.
#ifndef ZELK_ELF_ELF_INTERNAL_H_
#define ZELK_ELF_ELF_INTERNAL_H_

#include <cstdint>

#include "absl/status/statusor.h"
#include "absl/types/span.h"
#include "engine/image.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

engine::Image& imageOf(ELF& elf);
const engine::Image& imageOf(const ELF& elf);

// ELF::load, but a failure carries its reason, e.g. "not an ELF image (no
// ELF magic number)" or ".zelk.dbg.swp: payload ends inside an element at
// offset 4". ELF::load is this with the reason dropped.
absl::StatusOr<ELF> loadWithReason(absl::Span<const uint8_t> data);

// ELF::save, but a failure carries its reason.
absl::StatusOr<ELF::Image> saveWithReason(ELF& elf);

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_INTERNAL_H_
