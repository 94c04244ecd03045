// The part of an ELF object that never moves: the image itself. Views into
// section data (`text`, `commentInfo`, section spans) rely on the Impl
// staying put while the owning ELF is moved.
#ifndef ZELK_ELF_ELF_IMPL_H_
#define ZELK_ELF_ELF_IMPL_H_

#include "engine/image.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

struct ELF::Impl {
  engine::Image image;
};

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_IMPL_H_
