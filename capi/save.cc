// Saving through the C interface.
#include <cstdlib>

#include "capi/handle.h"

using zelk_elf::ELF;
using zelk_elf::capi::withELF;

extern "C" {

zelkELFBin zelkELFSave(zelkELFHandle handle) {
  const zelkELFBin empty = {nullptr, 0};
  return withELF(handle, empty, [&](ELF& elf) {
    absl::optional<ELF::Image> image = elf.save();
    if (!image.has_value()) return empty;
    // The buffer came from malloc; from here on it is the caller's.
    const auto released = image->release();
    return zelkELFBin{released.first, released.second};
  });
}

void zelkELFFreeBin(zelkELFBin bin) {
  if (bin.size != 0) std::free(bin.data);
}

}  // extern "C"
