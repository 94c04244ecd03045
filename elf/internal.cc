#include "elf/internal.h"

#include <utility>

#include "absl/status/status.h"
#include "elf/impl.h"

namespace zelk_elf {

engine::Image& imageOf(ELF& elf) { return elf.impl->image; }
const engine::Image& imageOf(const ELF& elf) { return elf.impl->image; }

absl::StatusOr<ELF> loadWithReason(absl::Span<const uint8_t> data) {
  absl::optional<ELF> elf = ELF::load(data);
  if (!elf) return absl::InvalidArgumentError("the image does not load");
  return std::move(*elf);
}

absl::StatusOr<ELF::Image> saveWithReason(ELF& elf) {
  absl::optional<ELF::Image> image = elf.save();
  if (!image) return absl::FailedPreconditionError("the image could not be saved");
  return std::move(*image);
}

}  // namespace zelk_elf
