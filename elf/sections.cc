// Raw section access by name.
#include <string>
#include <vector>

#include "elf/comment.h"
#include "elf/impl.h"
#include "elf/views.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

bool ELF::hasSection(const std::string& name) const {
  return impl->image.findSection(name) != nullptr;
}

absl::Span<const uint8_t> ELF::getSection(const std::string& name) const {
  const engine::Section* section = impl->image.findSection(name);
  if (section == nullptr) return {};
  // The bytes held, never the recorded size: SHT_NOBITS and truncated
  // sections hold fewer bytes than their headers claim.
  return section->bytes();
}

size_t ELF::getSectionSize(const std::string& name) const {
  const engine::Section* section = impl->image.findSection(name);
  if (section == nullptr) return 0;
  return static_cast<size_t>(section->size());
}

void ELF::setSection(const std::string& name, absl::Span<const uint8_t> data) {
  engine::Image& image = impl->image;
  engine::Section* section = image.findSection(name);
  if (section == nullptr) section = &addSection(*this, name);

  const bool is_text = name == kTextSectionName;
  const bool is_comment = name == kCommentSectionName;
  // Drop views into the bytes about to be released before releasing them;
  // if the lines cannot be read again they stay absent.
  if (is_text) text.reset();
  if (is_comment) commentInfo.reset();

  // Type first: the engine keeps no data for SHT_NOBITS.
  section->setType(engine::kShtProgbits);
  section->setData(data.data(), data.size());
  section->setAddrAlign(1);

  if (is_text) text = section->bytes();
  if (is_comment) commentInfo = loadCommentSection(image);
}

std::vector<std::string> ELF::getSectionNames() const {
  const engine::Image& image = impl->image;
  std::vector<std::string> names;
  names.reserve(image.sectionCount());
  for (size_t i = 0; i < image.sectionCount(); ++i) {
    names.push_back(image.section(i).name());
  }
  return names;
}

}  // namespace zelk_elf
