// zelk_elf: read, edit and write ELF images of the zelk processor, including
// the compiler's debug information in the ".zelk.dbg." sections.
#ifndef ZELK_ELF_ELF_H_
#define ZELK_ELF_ELF_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/string_view.h"
#include "absl/types/optional.h"
#include "absl/types/span.h"
#include "zelk_elf/debug_info.h"
#include "zelk_elf/fixed_vector.h"

namespace zelk_elf {

// ---------------------------------------------------------------------------
// One ELF image in memory with its decoded debug information.
//
// Move-only. Moving never copies the image: `commentInfo`, `text` and section
// spans stay valid across moves. A moved-from object may only be destroyed or
// assigned to.
class ZELK_ELF_API ELF {
 public:
  using Image = tolva_lib::FixedVector<uint8_t, tolva_lib::mem::SystemAllocator>;

  // A new, empty 32-bit little-endian image holding the null section and
  // ".shstrtab". Throws std::bad_alloc when memory runs out.
  ELF();
  ELF(ELF&& other) noexcept;
  ELF& operator=(ELF&& other) noexcept;
  ELF(const ELF&) = delete;
  ELF& operator=(const ELF&) = delete;
  ~ELF();

  // Parses `data` (copied; not referenced afterwards). Empty on any failure:
  // not ELF, a malformed image, a debug section that fails to decode, or
  // memory exhaustion. Never throws. A source or symbol map whose keys are
  // built to collide (more than 32 distinct keys in one bucket of the
  // std::unordered_map, which random names never reach) fails to decode:
  // filling such a map would cost time quadratic in its size.
  static absl::optional<ELF> load(absl::Span<const uint8_t> data);

  // Writes every engaged debug field into its section, lays the image out and
  // returns its bytes. Empty on failure: a section that would have to be
  // placed below its segment's start or over another one, an image larger
  // than 4 GiB - 1 bytes (the most a 32-bit image can address), or memory
  // exhaustion. Never throws.
  absl::optional<Image> save();

  // Raw sections, found by exact name (the first of that name in table order).
  bool hasSection(const std::string& name) const;
  // The bytes the section holds (never more than the input held); empty span
  // when there is no such section. The span is valid until the first of:
  // setSection on that section (or setText/setCommentInfo on ".text" or
  // ".comment"); any call that adds a section (setSection of a new name,
  // setText or setCommentInfo without such a section, save adding a debug
  // section), which replaces the bytes of the section-name table; save,
  // which rewrites every ".zelk.dbg." section whose field is engaged; the
  // object's destruction. Passing it back to setSection or setText of the
  // same object is safe: they copy it before replacing anything.
  absl::Span<const uint8_t> getSection(const std::string& name) const;
  // The recorded size (sh_size); 0 when there is no such section.
  size_t getSectionSize(const std::string& name) const;
  // Creates the section when missing; makes it SHT_PROGBITS with alignment 1.
  void setSection(const std::string& name, absl::Span<const uint8_t> data);
  std::vector<std::string> getSectionNames() const;

  // Installs `code` as ".text" (alloc + exec) and makes sure a loadable
  // segment carries it, except in relocatable images. Never throws.
  void setText(absl::Span<const uint8_t> code, unsigned int align);
  // Low 32 bits of the address of ".text"; 0 when there is none.
  uint32_t getTextAddr() const;
  // Rewrites ".comment": each non-empty line followed by a NUL. An empty list
  // changes nothing. Never throws.
  void setCommentInfo(const std::vector<absl::string_view>& lines);

  uint16_t getMachine() const;
  void setMachine(uint16_t machine);
  uint16_t getType() const;
  void setType(uint16_t type);
  uint64_t getEntry() const;
  void setEntry(uint64_t entry);

  void setVerifyInfo(std::string info) { verifyInfo = std::move(info); }

  struct Impl;

  // The image. Null only in a moved-from object.
  std::unique_ptr<Impl> impl;

  // Decoded debug information, in the order of the ".zelk.dbg." sections.
  // Empty means absent; an engaged empty value is present but empty.
  absl::optional<DebugInfoID> dbgID;
  absl::optional<SpillInfo> spillInfo;
  absl::optional<SWPInfo> swpInfo;
  absl::optional<ControlFlowGraph> cfgInfo;
  absl::optional<SourceMap> srcInfo;
  absl::optional<SymbolMap> symInfo;
  absl::optional<uint32_t> pmSize;
  absl::optional<std::string> verifyInfo;
  absl::optional<LatencyInfo> latencyInfo;

  // Views into the image's ".comment" lines and ".text" bytes.
  absl::optional<std::vector<absl::string_view>> commentInfo;
  absl::optional<absl::Span<const uint8_t>> text;
};

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_H_
