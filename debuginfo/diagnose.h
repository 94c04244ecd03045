// Explains why the debug sections of an image fail to decode. The library
// itself reports no reasons; tools use this to tell their users where.
#ifndef ZELK_ELF_DEBUGINFO_DIAGNOSE_H_
#define ZELK_ELF_DEBUGINFO_DIAGNOSE_H_

#include <cstddef>
#include <string>

#include "absl/types/optional.h"
#include "engine/image.h"

namespace zelk_elf {

struct DebugDecodeFailure {
  std::string section;  // e.g. ".zelk.dbg.swp"
  // Byte offset, within the section's payload, of the start of the value,
  // element, entry or field that could not be decoded.
  size_t offset = 0;
  size_t payload_size = 0;
};

// The first debug section, in load order, that fails to decode; empty when
// every present debug section decodes.
absl::optional<DebugDecodeFailure> diagnoseDebugSections(
    const engine::Image& image);

}  // namespace zelk_elf

#endif  // ZELK_ELF_DEBUGINFO_DIAGNOSE_H_
