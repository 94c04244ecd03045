// The one door through which the library's own tools, tests, fuzzers and the
// Python module reach past the public face: the engine image behind an
// object, and load and save with the reason of a failure. The public face
// stays silent by contract; these say what failed and where.
#ifndef ZELK_ELF_ELF_INTERNAL_H_
#define ZELK_ELF_ELF_INTERNAL_H_

#include <cstdint>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "absl/types/span.h"
#include "elf/debug_fields.h"
#include "engine/image.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

engine::Image& imageOf(ELF& elf);
const engine::Image& imageOf(const ELF& elf);

// ELF::load, but a failure carries its reason: "not an ELF image (no ELF
// magic number)", ".zelk.dbg.swp: payload of 6 bytes ends inside an element
// at offset 4". ELF::load is this with the reason dropped.
absl::StatusOr<ELF> loadWithReason(absl::Span<const uint8_t> data) noexcept;

// ELF::save, but a failure carries its reason. ELF::save is this with the
// reason dropped.
absl::StatusOr<ELF::Image> saveWithReason(ELF& elf) noexcept;

// A resource-exhausted status saying what ran out of memory; when not even
// that text can be allocated, the code alone.
absl::Status outOfMemory(const char* while_doing) noexcept;

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_INTERNAL_H_
