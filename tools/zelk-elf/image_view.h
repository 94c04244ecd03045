// The image behind an ELF object as plain records (class, byte order,
// offsets, segments): the only place the tool reads the library's engine.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_IMAGE_VIEW_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_IMAGE_VIEW_H_

#include <cstdint>
#include <vector>

#include "absl/strings/string_view.h"
#include "absl/types/span.h"
#include "engine/section_list.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace cli {

struct SectionView {
  absl::string_view name;
  uint32_t type, link, info;
  // `size` is the recorded size (sh_size); `bytes` what the image holds.
  uint64_t flags, address, offset, size, alignment, entry_size;
  absl::Span<const uint8_t> bytes;
};

struct SegmentView {
  uint32_t type, flags;
  uint64_t offset, virtual_address, physical_address, file_size, memory_size,
      alignment;
  // Indexes into the section table, in list order.
  const engine::SectionList& sections;
};

// Views into the object's image, valid while it lives unchanged.
struct ImageView {
  bool is_64_bit, big_endian;
  uint32_t flags;        // e_flags
  size_t section_names;  // e_shstrndx, the section-name string table
  std::vector<SectionView> sections;
  std::vector<SegmentView> segments;

  const char* className() const { return is_64_bit ? "64-bit" : "32-bit"; }
  const char* byteOrderName() const {
    return big_endian ? "big-endian" : "little-endian";
  }
  // The name of section `index`, "?" past the table.
  absl::string_view sectionName(size_t index) const {
    return index < sections.size() ? sections[index].name : "?";
  }
};

ImageView viewOf(const ELF& elf);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_IMAGE_VIEW_H_
