#include "tools/zelk-elf/image_view.h"

#include "elf/internal.h"
#include "engine/image.h"

namespace zelk_elf {
namespace cli {

ImageView viewOf(const ELF& elf) {
  const engine::Image& image = imageOf(elf);
  ImageView view{image.wide(),
                 image.encoding() == engine::kDataMsb,
                 image.header().flags,
                 image.header().shstrndx,
                 {},
                 {}};
  view.sections.reserve(image.sections().size());
  for (const engine::Section& s : image.sections()) {
    const engine::SectionHeader& h = s.header;
    view.sections.push_back({s.name, h.type, h.link, h.info, h.flags, h.addr, h.offset,
                             h.size, h.addralign, h.entsize, s.bytes()});
  }
  view.segments.reserve(image.segments().size());
  for (const engine::Segment& g : image.segments()) {
    const engine::SegmentHeader& h = g.header;
    view.segments.push_back({h.type, h.flags, h.offset, h.vaddr, h.paddr, h.filesz, h.memsz,
                             h.align, g.sections});
  }
  return view;
}

}  // namespace cli
}  // namespace zelk_elf
