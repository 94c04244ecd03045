// Loading: bytes to an object with decoded debug information.
#include <utility>
#include <vector>

#include "elf/comment.h"
#include "elf/debug_fields.h"
#include "elf/impl.h"
#include "elf/internal.h"
#include "elf/sections.h"

namespace zelk_elf {

absl::StatusOr<ELF> loadWithReason(absl::Span<const uint8_t> data) noexcept {
  try {
    ELF elf;
    engine::Image& image = elf.impl->image;
    // The engine copies what it keeps, so `data` is not referenced after
    // this call.
    if (absl::Status s = image.load(data); !s.ok()) return s;
    if (absl::Status s = readDebugFields(elf); !s.ok()) return s;
    std::vector<absl::string_view> lines = loadCommentSection(image);
    if (!lines.empty()) elf.commentInfo = std::move(lines);
    if (const engine::Section* text = image.findSection(kTextSectionName)) {
      elf.text = text->bytes();
    }
    return elf;
  } catch (...) {
    return outOfMemory("loading");
  }
}

absl::optional<ELF> ELF::load(absl::Span<const uint8_t> data) {
  absl::StatusOr<ELF> elf = loadWithReason(data);
  if (!elf.ok()) return absl::nullopt;
  return absl::optional<ELF>(std::move(*elf));
}

}  // namespace zelk_elf
