// Keeping `ELF::text` and `ELF::commentInfo` pointed at live bytes.
#ifndef ZELK_ELF_ELF_VIEWS_H_
#define ZELK_ELF_ELF_VIEWS_H_

#include "zelk_elf/elf.h"

namespace zelk_elf {

// Re-points the engaged views at the current data of ".text" and ".comment".
// Called after a section was added: the name goes into the section-name
// table, and an image may use ".text" or ".comment" as that table, whose
// bytes then move. If the lines cannot be read again, `commentInfo` is
// emptied and the exception propagates.
void refreshViews(ELF& elf);

// The same for failure paths, where the image may have changed midway:
// never throws; a `commentInfo` that cannot be rebuilt is emptied.
void keepViewsValid(ELF& elf) noexcept;

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_VIEWS_H_
