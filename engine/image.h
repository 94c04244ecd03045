// Our own small ELF reader and writer. It reproduces the observable behaviour
// that zelk images depend on (section table, segment membership, the save
// layout and write order) for both classes and byte orders, and unlike the
// code it stands in for, it never trusts a count, size or offset it reads.
#ifndef ZELK_ELF_ENGINE_IMAGE_H_
#define ZELK_ELF_ENGINE_IMAGE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "absl/strings/string_view.h"
#include "absl/types/span.h"

namespace zelk_elf {
namespace engine {

// Identification.
constexpr uint8_t kClass32 = 1;
constexpr uint8_t kClass64 = 2;
constexpr uint8_t kDataLsb = 1;
constexpr uint8_t kDataMsb = 2;

// File types, section types and flags, segment types and flags.
constexpr uint16_t kEtRel = 1;
constexpr uint16_t kEtExec = 2;
constexpr uint32_t kShtNull = 0;
constexpr uint32_t kShtProgbits = 1;
constexpr uint32_t kShtStrtab = 3;
constexpr uint32_t kShtNobits = 8;
constexpr uint64_t kShfWrite = 0x1;
constexpr uint64_t kShfAlloc = 0x2;
constexpr uint64_t kShfExecInstr = 0x4;
constexpr uint64_t kShfMerge = 0x10;
constexpr uint64_t kShfStrings = 0x20;
constexpr uint64_t kShfTls = 0x400;
constexpr uint32_t kPtNull = 0;
constexpr uint32_t kPtLoad = 1;
constexpr uint32_t kPtPhdr = 6;
constexpr uint32_t kPtTls = 7;
constexpr uint32_t kPfX = 1;
constexpr uint32_t kPfW = 2;
constexpr uint32_t kPfR = 4;

// Header records as plain host-order values. Address-sized fields are 64-bit
// here; in the 32-bit class setters keep the low 32 bits.
struct FileHeader {
  std::array<uint8_t, 16> ident{};
  uint16_t type = 0;
  uint16_t machine = 0;
  uint32_t version = 0;
  uint64_t entry = 0;
  uint64_t phoff = 0;
  uint64_t shoff = 0;
  uint32_t flags = 0;
  uint16_t ehsize = 0;
  uint16_t phentsize = 0;
  uint16_t phnum = 0;
  uint16_t shentsize = 0;
  uint16_t shnum = 0;
  uint16_t shstrndx = 0;
};

struct SectionHeader {
  uint32_t name = 0;
  uint32_t type = 0;
  uint64_t flags = 0;
  uint64_t addr = 0;
  uint64_t offset = 0;
  uint64_t size = 0;
  uint32_t link = 0;
  uint32_t info = 0;
  uint64_t addralign = 0;
  uint64_t entsize = 0;
};

struct SegmentHeader {
  uint32_t type = 0;
  uint32_t flags = 0;
  uint64_t offset = 0;
  uint64_t vaddr = 0;
  uint64_t paddr = 0;
  uint64_t filesz = 0;
  uint64_t memsz = 0;
  uint64_t align = 0;
};

class Image;

// One entry of the section table with the bytes it holds. Owned by its Image;
// references and data pointers stay valid while sections are added.
class Section {
 public:
  size_t index() const;
  // The in-memory name: authoritative for lookups, never re-read from the
  // string table after load.
  const std::string& name() const;
  const SectionHeader& header() const;

  uint32_t type() const;
  void setType(uint32_t type);
  uint64_t flags() const;
  void setFlags(uint64_t flags);
  uint64_t address() const;
  void setAddress(uint64_t address);  // also marks the address as set
  uint64_t size() const;              // recorded size (sh_size)
  void setSize(uint64_t size);
  uint64_t addrAlign() const;
  void setAddrAlign(uint64_t align);
  uint64_t entrySize() const;
  void setEntrySize(uint64_t size);
  uint32_t link() const;
  void setLink(uint32_t link);
  uint32_t info() const;
  void setInfo(uint32_t info);
  uint64_t offset() const;
  uint32_t nameOffset() const;

  // The bytes the section holds. Null whenever it holds none (SHT_NULL,
  // SHT_NOBITS, size 0, or data outside the loaded input); a section loaded
  // from a truncated image holds only the part inside the input.
  const uint8_t* data() const;
  size_t dataSize() const;
  absl::Span<const uint8_t> bytes() const { return {data(), dataSize()}; }

  // Replaces the bytes (ignored for SHT_NOBITS) and sets the recorded size to
  // the count now held. `data` may be null only when `size` is 0. On
  // allocation failure the section holds nothing and records size 0.
  void setData(const uint8_t* data, size_t size);

 private:
  friend class Image;
  friend struct ImageInternals;
  struct State;
  explicit Section(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;

 public:
  ~Section();
};

// One program header with the ordered list of sections it carries.
class Segment {
 public:
  size_t index() const;
  const SegmentHeader& header() const;

  uint32_t type() const;
  void setType(uint32_t type);
  uint32_t flags() const;
  void setFlags(uint32_t flags);
  uint64_t virtualAddress() const;
  void setVirtualAddress(uint64_t address);
  uint64_t physicalAddress() const;
  void setPhysicalAddress(uint64_t address);
  uint64_t align() const;
  void setAlign(uint64_t align);
  uint64_t fileSize() const;
  void setFileSize(uint64_t size);
  uint64_t memorySize() const;
  void setMemorySize(uint64_t size);
  uint64_t offset() const;

  size_t sectionCount() const;
  // The k-th listed section index; 0xFFFF when k is out of range.
  uint16_t sectionIndexAt(size_t k) const;
  const std::vector<uint16_t>& sectionIndexes() const;
  // Appends `index` (no range or duplicate check) and raises the alignment
  // to `align` when that is larger. Returns the new list length.
  size_t addSectionIndex(uint16_t index, uint64_t align);

 private:
  friend class Image;
  friend struct ImageInternals;
  struct State;
  explicit Segment(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;

 public:
  ~Segment();
};

// A whole ELF image: header, section table and segment table.
class Image {
 public:
  // Same as create(kClass32, kDataLsb).
  Image();
  ~Image();
  Image(Image&&) noexcept;
  Image& operator=(Image&&) noexcept;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  // A new image of that class and byte order: the null section and
  // ".shstrtab", no segments.
  void create(uint8_t elf_class, uint8_t encoding);

  // Replaces the contents with the image in `bytes` (copied). False when the
  // bytes are not a loadable ELF image. Allocation stays within a small
  // multiple of the input size whatever the headers claim.
  bool load(absl::Span<const uint8_t> bytes);

  // Lays the image out and writes it with absolute positioning. Writes every
  // gap itself, so any seekable ostream works. False when the layout fails
  // (a section placed below its segment, or an image larger than 4 GiB - 1
  // bytes, the most a 32-bit image can address) or the stream fails; layout
  // values assigned so far stay in the image.
  bool save(std::ostream& out);

  uint8_t elfClass() const;
  uint8_t encoding() const;
  const FileHeader& header() const;

  uint16_t type() const;
  void setType(uint16_t type);
  uint16_t machine() const;
  void setMachine(uint16_t machine);
  uint64_t entry() const;
  void setEntry(uint64_t entry);
  uint32_t flags() const;
  void setFlags(uint32_t flags);

  size_t sectionCount() const;
  Section& section(size_t index);
  const Section& section(size_t index) const;
  // First section of that exact name in table order, or null.
  Section* findSection(absl::string_view name);
  const Section* findSection(absl::string_view name) const;
  // Appends a section and its name to the section-name string table.
  Section& addSection(absl::string_view name);

  size_t segmentCount() const;
  Segment& segment(size_t index);
  const Segment& segment(size_t index) const;
  Segment& addSegment();

 private:
  friend struct ImageInternals;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_ENGINE_IMAGE_H_
