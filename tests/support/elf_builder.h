// Images built by hand, for inputs the library would never write.
#ifndef ZELK_ELF_TESTS_SUPPORT_ELF_BUILDER_H_
#define ZELK_ELF_TESTS_SUPPORT_ELF_BUILDER_H_

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/records.h"

namespace zelk_elf {
namespace testing {

// The file header, program headers, `body` at `body_at` (or after the program
// headers), then the section headers at `h.shoff` or after the body.
struct ElfBuilder {
  explicit ElfBuilder(uint8_t elf_class = engine::kClass64, uint8_t encoding = engine::kDataLsb)
      : format(&engine::recordFormat(elf_class, encoding)) {
    h.ident = {0x7F, 'E', 'L', 'F', elf_class, encoding, 1};
    h.version = 1;
    h.type = engine::kEtExec;
    h.ehsize = static_cast<uint16_t>(format->file_header_size);
    h.phentsize = static_cast<uint16_t>(format->segment_header_size);
    h.shentsize = static_cast<uint16_t>(format->section_header_size);
  }

  // The null entry, ".shstrtab" and an ALLOC ".data" holding "hello".
  static ElfBuilder basic(uint8_t elf_class = engine::kClass64) {
    ElfBuilder b(elf_class);
    const std::string body("\0.shstrtab\0.data\0hello", 23);
    b.body.assign(body.begin(), body.end());
    b.sections.resize(3);
    b.sections[1] = {1, engine::kShtStrtab, 0, 0, 0x200, 17, 0, 0, 1, 0};
    b.sections[2] = {11, engine::kShtProgbits, engine::kShfAlloc, 0x1000, 0x211, 6, 0, 0, 1, 0};
    b.h.shstrndx = 1;
    return b;
  }

  std::vector<uint8_t> build() {
    h.phnum = static_cast<uint16_t>(segments.size());
    h.phoff = segments.empty() ? 0 : h.ehsize;
    h.shnum = static_cast<uint16_t>(sections.size());
    // Entries narrower than their records still get the whole record's room.
    const uint64_t ph = std::max<uint64_t>(h.phentsize, format->segment_header_size);
    const uint64_t sh = std::max<uint64_t>(h.shentsize, format->section_header_size);
    body_at = std::max<uint64_t>(body_at, h.phoff + ph * h.phnum);
    if (h.shoff == 0 && !sections.empty()) h.shoff = body_at + body.size();
    std::vector<uint8_t> out(
        std::max<uint64_t>(body_at + body.size(), h.shoff + sh * sections.size()));
    format->encodeFileHeader(h, out.data());
    for (size_t i = 0; i < segments.size(); ++i) {
      format->encodeSegmentHeader(segments[i], out.data() + h.phoff + h.phentsize * i);
    }
    std::copy(body.begin(), body.end(), out.begin() + body_at);
    for (size_t i = 0; i < sections.size(); ++i) {
      format->encodeSectionHeader(sections[i], out.data() + h.shoff + h.shentsize * i);
    }
    return out;
  }

  const engine::RecordFormat* format;
  engine::FileHeader h;
  std::vector<engine::SectionHeader> sections;
  std::vector<engine::SegmentHeader> segments;
  std::vector<uint8_t> body;
  uint64_t body_at = 0x200;
};

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_SUPPORT_ELF_BUILDER_H_
