// The nine ".zelk.dbg." sections and the fields of ELF that hold their
// decoded values: one table, read at load and written at save.
#ifndef ZELK_ELF_ELF_DEBUG_FIELDS_H_
#define ZELK_ELF_ELF_DEBUG_FIELDS_H_

#include "absl/status/status.h"
#include "absl/strings/string_view.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

// Section names, in the order loading and saving process them.
inline constexpr absl::string_view kDebugSectionNames[9] = {
    ".zelk.dbg.id",     ".zelk.dbg.spill",      ".zelk.dbg.swp",
    ".zelk.dbg.cfg",    ".zelk.dbg.src",        ".zelk.dbg.sym",
    ".zelk.dbg.pmsize", ".zelk.dbg.verifyinfo", ".zelk.dbg.latency"};

// Decodes the first section of each name that the image holds into its
// field; the fields must all be empty. Stops at the first payload refused,
// naming it: ".zelk.dbg.swp: payload of 6 bytes ends inside an element at
// offset 4". Allocation failures propagate.
absl::Status readDebugFields(ELF& elf);

// Encodes every engaged field into its section as a raw section write
// (created when missing, SHT_PROGBITS, alignment 1). Fails when a payload
// could not be stored. Allocation failures propagate.
absl::Status writeDebugFields(ELF& elf);

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_DEBUG_FIELDS_H_
