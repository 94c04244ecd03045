// The sample image of `zelk-elf sample`.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_SAMPLE_IMAGE_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_SAMPLE_IMAGE_H_

#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace cli {

// A small but realistic zelk executable: 32-bit, .text in a loadable
// segment, .comment, and all nine debug values filled in. Built only through
// the public class, and the same every time.
ELF makeSampleImage();

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_SAMPLE_IMAGE_H_
