// The load and save steps for the nine ".zelk.dbg." sections.
#ifndef ZELK_ELF_DEBUGINFO_DEBUG_SECTIONS_H_
#define ZELK_ELF_DEBUGINFO_DEBUG_SECTIONS_H_

#include "engine/image.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

// Section names, in the order loading and saving process them.
inline constexpr const char* kDebugSectionNames[9] = {
    ".zelk.dbg.id",     ".zelk.dbg.spill",  ".zelk.dbg.swp",
    ".zelk.dbg.cfg",    ".zelk.dbg.src",    ".zelk.dbg.sym",
    ".zelk.dbg.pmsize", ".zelk.dbg.verifyinfo", ".zelk.dbg.latency"};

// Decodes each debug section present in `image` (the first of each name)
// into the matching field of `elf`, whose fields must all be empty. False at
// the first section that fails to decode. Allocation failures propagate.
bool readDebugSections(const engine::Image& image, ELF& elf);

// Encodes every engaged debug field of `elf` into its section of `image`,
// creating the section when missing (SHT_PROGBITS, alignment 1). False when
// an encode reports failure. Allocation failures propagate.
bool writeDebugSections(const ELF& elf, engine::Image& image);

}  // namespace zelk_elf

#endif  // ZELK_ELF_DEBUGINFO_DEBUG_SECTIONS_H_
