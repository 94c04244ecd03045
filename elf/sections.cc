// Raw section access by name, and the one place views are kept valid.
#include "elf/sections.h"

#include <cstdint>
#include <string>
#include <vector>

#include "elf/comment.h"
#include "elf/impl.h"

namespace zelk_elf {
namespace {

// Which view, if any, shows the bytes of `section`: the first ".text" and
// the first ".comment" of the image have one each.
struct Viewed {
  bool text = false;
  bool comment = false;
};

Viewed viewedBy(const ELF& elf, const engine::Section& section) {
  const engine::Image& image = elf.impl->image;
  Viewed v;
  v.text = section.name == kTextSectionName &&
           &section == image.findSection(kTextSectionName);
  v.comment = section.name == kCommentSectionName &&
              &section == image.findSection(kCommentSectionName);
  return v;
}

// Points the views that show `section` at its current bytes.
void refreshViews(ELF& elf, const engine::Section& section, Viewed viewed) {
  if (viewed.text) elf.text = section.bytes();
  if (viewed.comment) {
    elf.commentInfo.reset();
    elf.commentInfo = loadCommentSection(elf.impl->image);
  }
}

}  // namespace

engine::Section& addSection(ELF& elf, absl::string_view name) {
  engine::Image& image = elf.impl->image;
  engine::Section& added = image.addSection(name);
  const size_t table = image.header().shstrndx;
  if (table != 0 && table < image.sections().size()) {
    const engine::Section& names = image.sections()[table];
    try {
      refreshViews(elf, names, viewedBy(elf, names));
    } catch (...) {
      // The section is added; only the lines of a ".comment" that holds the
      // names could not be read again, and they are absent now.
    }
  }
  return added;
}

absl::Status replaceData(ELF& elf, engine::Section& section, absl::Span<const uint8_t> data) {
  // Drop views into the bytes about to be released before releasing them.
  const Viewed viewed = viewedBy(elf, section);
  if (viewed.text) elf.text.reset();
  if (viewed.comment) elf.commentInfo.reset();
  absl::Status copied = section.setData(data.data(), data.size());
  refreshViews(elf, section, viewed);
  return copied;
}

absl::Span<const uint8_t> keepFromNameTable(const engine::Image& image,
                                            absl::Span<const uint8_t> data,
                                            std::vector<uint8_t>& kept) {
  const size_t table = image.header().shstrndx;
  if (data.empty() || table == 0 || table >= image.sections().size()) return data;
  const absl::Span<const uint8_t> names = image.sections()[table].bytes();
  const auto at = [](const uint8_t* p) { return reinterpret_cast<uintptr_t>(p); };
  if (names.empty() || at(data.data()) >= at(names.data()) + names.size() ||
      at(names.data()) >= at(data.data()) + data.size()) {
    return data;
  }
  kept.assign(data.begin(), data.end());
  return kept;
}

absl::Status writeRawSection(ELF& elf, absl::string_view name, absl::Span<const uint8_t> data) {
  engine::Section* section = elf.impl->image.findSection(name);
  std::vector<uint8_t> kept;
  if (section == nullptr) {
    data = keepFromNameTable(elf.impl->image, data, kept);
    section = &addSection(elf, name);
  }
  return writeRawSection(elf, *section, data);
}

absl::Status writeRawSection(ELF& elf, engine::Section& section,
                             absl::Span<const uint8_t> data) {
  // Type first: SHT_NOBITS holds no data.
  section.header.type = engine::kShtProgbits;
  absl::Status copied = replaceData(elf, section, data);
  section.header.addralign = 1;
  return copied;
}

bool ELF::hasSection(const std::string& name) const {
  return impl->image.findSection(name) != nullptr;
}

absl::Span<const uint8_t> ELF::getSection(const std::string& name) const {
  const engine::Section* section = impl->image.findSection(name);
  // The bytes held, never the recorded size: SHT_NOBITS and truncated
  // sections hold fewer bytes than their headers claim.
  return section == nullptr ? absl::Span<const uint8_t>() : section->bytes();
}

size_t ELF::getSectionSize(const std::string& name) const {
  const engine::Section* section = impl->image.findSection(name);
  return section == nullptr ? 0 : static_cast<size_t>(section->header.size);
}

void ELF::setSection(const std::string& name, absl::Span<const uint8_t> data) {
  // Bytes that cannot be copied leave the section empty (size 0), which is
  // all this interface can say of it.
  writeRawSection(*this, name, data).IgnoreError();
}

std::vector<std::string> ELF::getSectionNames() const {
  const absl::Span<const engine::Section> sections = impl->image.sections();
  std::vector<std::string> names;
  names.reserve(sections.size());
  for (const engine::Section& s : sections) names.emplace_back(s.name);
  return names;
}

}  // namespace zelk_elf
