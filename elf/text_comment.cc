// Installing processor code as ".text" and rewriting ".comment".
#include <algorithm>
#include <vector>

#include "elf/comment.h"
#include "elf/impl.h"
#include "elf/sections.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace {

constexpr uint64_t kTextSegmentAlign = 0x1000;

bool isCarriedBySegment(const engine::Image& image, size_t section_index) {
  for (const engine::Segment& g : image.segments()) {
    if (std::find(g.sections.begin(), g.sections.end(), section_index) !=
        g.sections.end()) {
      return true;
    }
  }
  return false;
}

}  // namespace

void ELF::setText(absl::Span<const uint8_t> code, unsigned int align) {
  try {
    engine::Image& image = impl->image;
    engine::Section* section = image.findSection(kTextSectionName);
    std::vector<uint8_t> kept;
    if (section == nullptr) {
      code = keepFromNameTable(image, code, kept);
      section = &addSection(*this, kTextSectionName);
    }
    section->header.type = engine::kShtProgbits;
    section->header.flags = engine::kShfAlloc | engine::kShfExecInstr;
    // Code that cannot be copied leaves .text empty; setText reports nothing.
    replaceData(*this, *section, code).IgnoreError();
    section->header.addralign = align;

    // Relocatable objects have no segments to load the code with.
    if (image.header().type == engine::kEtRel) return;
    const size_t index = static_cast<size_t>(section - image.sections().data());
    if (isCarriedBySegment(image, index)) return;
    engine::Segment& segment = image.addSegment();
    segment.header.type = engine::kPtLoad;
    segment.header.vaddr = 0;
    segment.header.paddr = 0;
    segment.header.flags = engine::kPfR | engine::kPfX;
    segment.header.align = kTextSegmentAlign;
    segment.addSectionIndex(static_cast<uint16_t>(index), section->header.addralign);
  } catch (...) {
    // Whatever was changed stays; `text` never views released bytes.
  }
}

uint32_t ELF::getTextAddr() const {
  const engine::Section* section = impl->image.findSection(kTextSectionName);
  return section == nullptr ? 0 : static_cast<uint32_t>(section->header.addr);
}

void ELF::setCommentInfo(const std::vector<absl::string_view>& lines) {
  if (lines.empty()) return;
  try {
    engine::Image& image = impl->image;
    const std::vector<uint8_t> data = encodeCommentLines(lines);
    engine::Section* section = image.findSection(kCommentSectionName);
    if (section == nullptr) {
      section = &addSection(*this, kCommentSectionName);
      section->header.type = engine::kShtProgbits;
      section->header.flags = engine::kShfMerge | engine::kShfStrings;
      section->header.entsize = 1;
      section->header.addralign = 1;
    }
    replaceData(*this, *section, data).IgnoreError();  // as setText
  } catch (...) {
    // Whatever was changed stays; `commentInfo` never views released bytes.
  }
}

}  // namespace zelk_elf
