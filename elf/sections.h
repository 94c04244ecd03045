// Raw section edits as the class makes them, keeping `ELF::text` and
// `ELF::commentInfo` on live bytes. Those views change only when the bytes
// of the section they view are replaced: the first ".text" or ".comment".
#ifndef ZELK_ELF_ELF_SECTIONS_H_
#define ZELK_ELF_ELF_SECTIONS_H_

#include <cstdint>
#include <vector>

#include "absl/status/status.h"
#include "absl/strings/string_view.h"
#include "absl/types/span.h"
#include "engine/image.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

inline constexpr const char kCommentSectionName[] = ".comment";
inline constexpr const char kTextSectionName[] = ".text";

// Adds a section. Its name goes into the section-name table, whose bytes are
// replaced: an image may keep its names in ".text" or ".comment", and that
// view then follows the new bytes.
engine::Section& addSection(ELF& elf, absl::string_view name);

// Replaces the bytes of `section`. When it is the first ".text" or
// ".comment", the matching view is engaged with the new bytes; if the lines
// cannot be read (out of memory) they stay absent and the exception
// propagates. When the bytes cannot be copied, the section holds none and
// the status says so.
absl::Status replaceData(ELF& elf, engine::Section& section, absl::Span<const uint8_t> data);

// Adding a section replaces the bytes of the section-name table, and `data`,
// bytes about to be stored, may be those very bytes (a caller copying
// ".shstrtab" under a new name). Then they are copied into `kept` first and
// the result views the copy; otherwise it is `data`.
absl::Span<const uint8_t> keepFromNameTable(const engine::Image& image,
                                            absl::Span<const uint8_t> data,
                                            std::vector<uint8_t>& kept);

// The raw section write of setSection and of the debug fields: the first
// section of that name, created when missing, becomes SHT_PROGBITS with
// these bytes and alignment 1; nothing else about it changes. The status is
// replaceData's.
absl::Status writeRawSection(ELF& elf, absl::string_view name, absl::Span<const uint8_t> data);
// The same on a section already found.
absl::Status writeRawSection(ELF& elf, engine::Section& section,
                             absl::Span<const uint8_t> data);

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_SECTIONS_H_
