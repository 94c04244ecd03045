// ELF::load: bytes to an object with decoded debug information.
#include <exception>
#include <utility>

#include "debuginfo/debug_sections.h"
#include "elf/comment.h"
#include "elf/impl.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

absl::optional<ELF> ELF::load(absl::Span<const uint8_t> data) {
  try {
    ELF elf;
    engine::Image& image = elf.impl->image;
    // The engine copies what it keeps, so `data` is not referenced after
    // this call.
    if (!image.load(data)) return absl::nullopt;
    if (!readDebugSections(image, elf)) return absl::nullopt;

    std::vector<absl::string_view> lines = loadCommentSection(image);
    if (!lines.empty()) elf.commentInfo = std::move(lines);

    if (const engine::Section* text = image.findSection(kTextSectionName)) {
      elf.text = text->bytes();
    }
    return absl::optional<ELF>(std::move(elf));
  } catch (...) {
    return absl::nullopt;
  }
}

}  // namespace zelk_elf
