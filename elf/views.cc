#include "elf/views.h"

#include "elf/comment.h"
#include "elf/impl.h"

namespace zelk_elf {

engine::Section& addSection(ELF& elf, absl::string_view name) {
  engine::Section& added = elf.impl->image.addSection(name);
  refreshNameTableView(elf);
  return added;
}

void refreshNameTableView(ELF& elf) noexcept {
  const engine::Image& image = elf.impl->image;
  const size_t table = image.header().shstrndx;
  if (table == 0 || table >= image.sectionCount()) return;
  const engine::Section* names = &image.section(table);
  if (elf.text && names == image.findSection(kTextSectionName)) {
    elf.text = names->bytes();
  }
  if (elf.commentInfo && names == image.findSection(kCommentSectionName)) {
    elf.commentInfo.reset();
    try {
      elf.commentInfo = loadCommentSection(image);
    } catch (...) {
      // Absent lines rather than lines on freed bytes.
    }
  }
}

}  // namespace zelk_elf
