// A handle is a heap-allocated zelk_elf::ELF seen through an opaque type.
#ifndef ZELK_ELF_CAPI_HANDLE_H_
#define ZELK_ELF_CAPI_HANDLE_H_

#include <utility>

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

// The convention of every function that takes a handle: `body` runs on the
// object behind it and its result is returned; a null handle, or an
// exception, gives `empty` instead. Nothing escapes into C.
template <typename R, typename F>
R withELF(zelkELFHandle handle, R empty, F&& body) noexcept {
  if (handle == nullptr) return empty;
  try {
    return std::forward<F>(body)(*toELF(handle));
  } catch (...) {
    return empty;
  }
}

}  // namespace capi
}  // namespace zelk_elf

#endif  // ZELK_ELF_CAPI_HANDLE_H_
