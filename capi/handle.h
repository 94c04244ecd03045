// A handle is a heap-allocated zelk_elf::ELF seen through an opaque type.
#ifndef ZELK_ELF_CAPI_HANDLE_H_
#define ZELK_ELF_CAPI_HANDLE_H_

#include "zelk_elf/elf.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace capi {

inline ELF* toELF(zelkELFHandle handle) {
  return reinterpret_cast<ELF*>(handle);
}

inline zelkELFHandle toHandle(ELF* elf) {
  return reinterpret_cast<zelkELFHandle>(elf);
}

}  // namespace capi
}  // namespace zelk_elf

#endif  // ZELK_ELF_CAPI_HANDLE_H_
