// Saving through the C interface.
#include <cstdlib>

#include "capi/handle.h"

using zelk_elf::capi::toELF;

extern "C" {

zelkELFBin zelkELFSave(zelkELFHandle handle) {
  zelkELFBin result = {nullptr, 0};
  try {
    absl::optional<zelk_elf::ELF::Image> image = toELF(handle)->save();
    if (!image.has_value()) return result;
    // The buffer came from malloc; from here on it is the caller's.
    const auto released = image->release();
    result.data = released.first;
    result.size = released.second;
  } catch (...) {
  }
  return result;
}

void zelkELFFreeBin(zelkELFBin bin) {
  if (bin.size != 0) std::free(bin.data);
}

}  // extern "C"
