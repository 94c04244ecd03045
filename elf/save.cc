// Saving: debug fields into their sections, then the image into bytes.
#include "absl/types/span.h"
#include "elf/debug_fields.h"
#include "elf/impl.h"
#include "elf/internal.h"

namespace zelk_elf {

absl::StatusOr<ELF::Image> saveWithReason(ELF& elf) noexcept {
  try {
    if (absl::Status s = writeDebugFields(elf); !s.ok()) return s;
    engine::Image& image = elf.impl->image;
    const absl::StatusOr<uint64_t> size = image.layOut();
    if (!size.ok()) return size.status();
    // The layout knows the file's size, so the image is written once,
    // straight into the buffer that is handed out: one allocation, no
    // stream in between, and every byte written (the gaps as zeros).
    ELF::Image bytes = ELF::Image::forOverwrite(static_cast<size_t>(*size));
    if (absl::Status s = image.write(absl::MakeSpan(bytes.data(), bytes.size())); !s.ok()) {
      return s;
    }
    return bytes;
  } catch (...) {
    return outOfMemory("saving");
  }
}

absl::optional<ELF::Image> ELF::save() {
  absl::StatusOr<Image> image = saveWithReason(*this);
  if (!image.ok()) return absl::nullopt;
  return absl::optional<Image>(std::move(*image));
}

}  // namespace zelk_elf
