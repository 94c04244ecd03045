#include "elf/views.h"

#include <utility>
#include <vector>

#include "elf/comment.h"
#include "elf/impl.h"

namespace zelk_elf {

void refreshViews(ELF& elf) {
  const engine::Image& image = elf.impl->image;
  if (elf.text.has_value()) {
    if (const engine::Section* text = image.findSection(kTextSectionName)) {
      elf.text = text->bytes();
    }
  }
  if (elf.commentInfo.has_value()) {
    elf.commentInfo.reset();
    std::vector<absl::string_view> lines = loadCommentSection(image);
    elf.commentInfo = std::move(lines);
  }
}

void keepViewsValid(ELF& elf) noexcept {
  try {
    refreshViews(elf);
  } catch (...) {
    // refreshViews empties `commentInfo` before rebuilding it.
  }
}

}  // namespace zelk_elf
