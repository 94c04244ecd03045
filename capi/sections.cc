// Raw sections through the C interface.
#include <string>

#include "capi/handle.h"

using zelk_elf::ELF;
using zelk_elf::capi::withELF;

extern "C" {

zelkELFSection zelkELFGetSection(zelkELFHandle handle, const char* name) {
  const zelkELFSection empty = {nullptr, 0};
  if (name == nullptr) return empty;
  return withELF(handle, empty, [&](const ELF& elf) {
    const absl::Span<const uint8_t> bytes = elf.getSection(name);
    return bytes.data() == nullptr ? empty
                                   : zelkELFSection{bytes.data(), bytes.size()};
  });
}

size_t zelkELFGetSectionSize(zelkELFHandle handle, const char* name) {
  if (name == nullptr) return 0;
  return withELF(handle, size_t{0},
                 [&](const ELF& elf) { return elf.getSectionSize(name); });
}

void zelkELFSetSection(zelkELFHandle handle, const char* name,
                       const uint8_t* data, size_t size) {
  if (name == nullptr) return;
  withELF(handle, 0, [&](ELF& elf) {
    elf.setSection(name, absl::MakeConstSpan(data, size));
    return 0;
  });
}

}  // extern "C"
