#include "tools/zelk-elf/image_view.h"

#include "elf/internal.h"
#include "engine/image.h"

namespace zelk_elf {
namespace cli {

ImageView viewOf(const ELF& elf) {
  const engine::Image& image = imageOf(elf);
  ImageView view{image.elfClass() == engine::kClass64,
                 image.encoding() == engine::kDataMsb,
                 image.flags(),
                 image.header().shstrndx,
                 {},
                 {}};
  for (size_t i = 0; i < image.sectionCount(); ++i) {
    const engine::Section& s = image.section(i);
    view.sections.push_back({s.name(), s.type(), s.link(), s.info(), s.flags(),
                             s.address(), s.offset(), s.size(), s.addrAlign(),
                             s.entrySize(), s.bytes()});
  }
  for (size_t i = 0; i < image.segmentCount(); ++i) {
    const engine::Segment& g = image.segment(i);
    view.segments.push_back({g.type(), g.flags(), g.offset(),
                             g.virtualAddress(), g.physicalAddress(),
                             g.fileSize(), g.memorySize(), g.align(),
                             g.sectionIndexes()});
  }
  return view;
}

}  // namespace cli
}  // namespace zelk_elf
