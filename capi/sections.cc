// Raw sections through the C interface.
#include <string>

#include "capi/handle.h"

using zelk_elf::capi::toELF;

extern "C" {

zelkELFSection zelkELFGetSection(zelkELFHandle handle, const char* name) {
  zelkELFSection result = {nullptr, 0};
  try {
    const absl::Span<const uint8_t> bytes = toELF(handle)->getSection(name);
    if (bytes.data() != nullptr) {
      result.data = bytes.data();
      result.size = bytes.size();
    }
  } catch (...) {
  }
  return result;
}

size_t zelkELFGetSectionSize(zelkELFHandle handle, const char* name) {
  try {
    return toELF(handle)->getSectionSize(name);
  } catch (...) {
    return 0;
  }
}

void zelkELFSetSection(zelkELFHandle handle, const char* name,
                       const uint8_t* data, size_t size) {
  try {
    toELF(handle)->setSection(name, absl::MakeConstSpan(data, size));
  } catch (...) {
  }
}

}  // extern "C"
