// Installing processor code as ".text" and rewriting ".comment".
#include <vector>

#include "elf/comment.h"
#include "elf/impl.h"
#include "elf/views.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace {

constexpr uint64_t kTextSegmentAlign = 0x1000;

bool isCarriedBySegment(const engine::Image& image, size_t section_index) {
  for (size_t i = 0; i < image.segmentCount(); ++i) {
    for (uint16_t index : image.segment(i).sectionIndexes()) {
      if (index == section_index) return true;
    }
  }
  return false;
}

}  // namespace

void ELF::setText(absl::Span<const uint8_t> code, unsigned int align) {
  try {
    engine::Image& image = impl->image;
    engine::Section* section = image.findSection(kTextSectionName);
    if (section == nullptr) section = &addSection(*this, kTextSectionName);

    section->setType(engine::kShtProgbits);
    section->setFlags(engine::kShfAlloc | engine::kShfExecInstr);
    // The old bytes go away inside setData; the view must not survive them,
    // whatever happens afterwards.
    text.reset();
    section->setData(code.data(), code.size());
    text = section->bytes();
    section->setAddrAlign(align);

    // Relocatable objects have no segments to load the code with.
    if (image.type() == engine::kEtRel) return;
    if (isCarriedBySegment(image, section->index())) return;
    engine::Segment& segment = image.addSegment();
    segment.setType(engine::kPtLoad);
    segment.setVirtualAddress(0);
    segment.setPhysicalAddress(0);
    segment.setFlags(engine::kPfR | engine::kPfX);
    segment.setAlign(kTextSegmentAlign);
    segment.addSectionIndex(static_cast<uint16_t>(section->index()),
                            section->addrAlign());
  } catch (...) {
    // Whatever was changed stays; `text` is reset before the old bytes go.
  }
}

uint32_t ELF::getTextAddr() const {
  const engine::Section* section = impl->image.findSection(kTextSectionName);
  if (section == nullptr) return 0;
  return static_cast<uint32_t>(section->address());
}

void ELF::setCommentInfo(const std::vector<absl::string_view>& lines) {
  if (lines.empty()) return;
  try {
    engine::Image& image = impl->image;
    const std::vector<uint8_t> data = encodeCommentLines(lines);

    engine::Section* section = image.findSection(kCommentSectionName);
    if (section == nullptr) {
      section = &addSection(*this, kCommentSectionName);
      section->setType(engine::kShtProgbits);
      section->setFlags(engine::kShfMerge | engine::kShfStrings);
      section->setEntrySize(1);
      section->setAddrAlign(1);
    }
    // Forget the old lines before their bytes are released: if reading the
    // new ones fails, the lines are absent rather than dangling.
    commentInfo.reset();
    section->setData(data.data(), data.size());
    commentInfo = loadCommentSection(image);
  } catch (...) {
    // Changes made so far stay; `commentInfo` is reset before the old bytes
    // go.
  }
}

}  // namespace zelk_elf
