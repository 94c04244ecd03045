#include "elf/internal.h"

#include "absl/strings/str_cat.h"
#include "elf/impl.h"

namespace zelk_elf {

engine::Image& imageOf(ELF& elf) { return elf.impl->image; }
const engine::Image& imageOf(const ELF& elf) { return elf.impl->image; }

absl::Status outOfMemory(const char* while_doing) noexcept {
  try {
    return absl::ResourceExhaustedError(absl::StrCat("out of memory while ", while_doing));
  } catch (...) {
    // Not even the reason fits: the code alone says it.
    return absl::Status(absl::StatusCode::kResourceExhausted, "");
  }
}

}  // namespace zelk_elf
