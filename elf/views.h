// Keeping `ELF::text` and `ELF::commentInfo` on live bytes. The views change
// only when the bytes of the section they view are replaced; every other
// edit leaves them exactly as they are, whoever set them.
#ifndef ZELK_ELF_ELF_VIEWS_H_
#define ZELK_ELF_ELF_VIEWS_H_

#include "absl/strings/string_view.h"
#include "engine/image.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

// Adds a section to the image. Its name goes into the section-name table,
// whose bytes are replaced; an image may keep its names in ".text" or
// ".comment", and then that view is pointed at the new bytes.
engine::Section& addSection(ELF& elf, absl::string_view name);

// Re-points an engaged view whose section is the section-name table, after
// names were appended to that table. A view that cannot be rebuilt is
// emptied, never left on freed bytes.
void refreshNameTableView(ELF& elf) noexcept;

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_VIEWS_H_
