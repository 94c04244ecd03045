// Our own small ELF reader and writer. It reproduces the observable behaviour
// that zelk images depend on (section table, segment membership, the save
// layout and write order) for both classes and byte orders, and it never
// trusts a count, size or offset it reads: every failure says what and where.
#ifndef ZELK_ELF_ENGINE_IMAGE_H_
#define ZELK_ELF_ENGINE_IMAGE_H_

#include <cstddef>
#include <cstdint>
#include <forward_list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "absl/strings/string_view.h"
#include "absl/types/span.h"
#include "engine/records.h"
#include "engine/section_list.h"

namespace zelk_elf {
namespace engine {

// The largest saved image, in both classes: the last offset a 32-bit image
// can express. Every layout below it is written; a layout that would pass it
// is refused, so a hostile alignment or size cannot wrap an offset around.
constexpr uint64_t kMaxImageSize = 0xFFFFFFFFu;

// Segment membership at load and the order of nested segments at save cost
// work in the number of sections and segments compared. Beyond this many
// comparisons an image is refused, with the reason; real images need a few
// thousand, and 4096 segments that each list all of 4096 sections need
// 2^24.
constexpr uint64_t kMaxSegmentWork = uint64_t{1} << 28;

// One entry of the section table and the bytes it holds.
struct Section {
  Section() = default;
  Section(const SectionHeader& h, bool address_set) : header(h), addr_init(address_set) {}

  SectionHeader header;
  // What lookups use: read once at load (or given to Image::addSection) and
  // never re-read from the string table, whatever happens to it later.
  absl::string_view name;
  // Set at load and when the layout gives the section an address; a member
  // of a segment whose address is set goes to the file position that
  // matches it, any other only by its alignment.
  bool addr_init = false;

  // The bytes the section holds: none (a null pointer) for SHT_NULL and
  // SHT_NOBITS, for a size of 0 and for data outside the loaded input; a
  // section cut short by the end of its input holds the part inside it.
  absl::Span<const uint8_t> bytes() const { return bytes_; }

  // Replaces the bytes with a copy of `data` and records their count as the
  // size. SHT_NOBITS holds nothing: its size becomes the count it holds. When
  // the copy cannot be allocated, the section holds nothing, records size 0
  // and the status says so.
  absl::Status setData(const uint8_t* data, size_t size);

 private:
  friend class Image;
  friend class ImageReader;
  // Holds `size` bytes at `own`, which has room for `capacity`, and records
  // that count as the size.
  void adopt(std::unique_ptr<uint8_t[]> own, size_t size, size_t capacity) noexcept;

  absl::Span<const uint8_t> bytes_;
  std::unique_ptr<uint8_t[]> own_;  // when the bytes are not the input's
  // Bytes `own_` has room for: a name table grows into it, so adding names
  // one by one costs time in proportion to them, not to their square.
  size_t capacity_ = 0;
};

// One program header with the sections it carries.
struct Segment {
  SegmentHeader header;
  // Indexes in list order; no range or duplicate check until save.
  SectionList sections;
  // Set at load and by every layout; a segment whose offset is set and 0
  // covers the file and program headers.
  bool off_init = false;

  // Appends `index` and raises the alignment to `align` when that is larger.
  void addSectionIndex(uint16_t index, uint64_t align) {
    sections.push_back(index);
    if (align > header.align) header.align = align;
  }
};

// A whole ELF image: header, section table and segment table. Movable; the
// bytes sections hold and the names they carry stay where they are.
class Image {
 public:
  // A new 32-bit little-endian image.
  Image() : Image(kClass32, kDataLsb) {}
  // A new image of that class and byte order: the null section and
  // ".shstrtab", no segments.
  Image(uint8_t elf_class, uint8_t encoding);
  Image(Image&&) noexcept = default;
  Image& operator=(Image&&) noexcept = default;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  // Replaces the contents with the image in `bytes`, copied once; sections
  // view that copy until they are changed. On failure the image is left as
  // it was and the status says why ("program header table ends beyond the
  // input (entry 7 at 0x1a0)").
  absl::Status load(absl::Span<const uint8_t> bytes);

  // Lays the image out and writes it: layOut, then write.
  absl::Status save(std::ostream& out);

  // Assigns file offsets, segment sizes and the header's table fields, and
  // returns the size of the file `write` will then produce. Values assigned
  // before a failure stay in the image.
  absl::StatusOr<uint64_t> layOut();

  // Writes the laid-out image, each contiguous run once and in file order,
  // the gaps as zeros; positions `out` only to go back, never past the end.
  absl::Status write(std::ostream& out) const;
  // Writes the laid-out image into `out`, which must be exactly the size
  // layOut returned: every byte of it is written, the gaps as zeros.
  absl::Status write(absl::Span<uint8_t> out) const;

  // The size `save` would write, from a layout of a copy of the tables; the
  // image itself is not changed. Lets callers refuse huge outputs first.
  absl::StatusOr<uint64_t> savedSize() const;

  uint8_t elfClass() const { return header_.ident[4]; }
  uint8_t encoding() const { return header_.ident[5]; }
  bool wide() const { return elfClass() == kClass64; }
  const RecordFormat& format() const { return recordFormat(elfClass(), encoding()); }
  // What an address-sized field of this class keeps.
  uint64_t fit(uint64_t v) const { return wide() ? v : (v & 0xFFFFFFFFu); }

  FileHeader& header() { return header_; }
  const FileHeader& header() const { return header_; }
  void setEntry(uint64_t entry) { header_.entry = fit(entry); }

  absl::Span<Section> sections() { return absl::MakeSpan(sections_); }
  absl::Span<const Section> sections() const { return sections_; }
  // The first section of that exact name in table order, or null. Constant
  // time on large tables (see kIndexedFrom).
  Section* findSection(absl::string_view name);
  const Section* findSection(absl::string_view name) const;
  // Appends a section and its name to the section-name string table, whose
  // bytes are then replaced. All or nothing: on allocation failure the
  // image is unchanged.
  Section& addSection(absl::string_view name);

  absl::Span<Segment> segments() { return absl::MakeSpan(segments_); }
  absl::Span<const Segment> segments() const { return segments_; }
  Segment& addSegment();

 private:
  // An image without even the null section, for savedSize's copy.
  struct ScratchTag {};
  explicit Image(ScratchTag) {}

  // Lookups scan a table of up to this many sections; a larger one gets an
  // index of each name's first section, kept as sections are added.
  static constexpr size_t kIndexedFrom = 32;
  using NameIndex = absl::flat_hash_map<absl::string_view, size_t>;

  FileHeader header_;
  std::vector<Section> sections_;
  // Built on the first lookup in a large table; names never change, and
  // the bytes they view never move.
  mutable NameIndex name_index_;
  mutable bool indexed_ = false;
  std::vector<Segment> segments_;
  // The loaded bytes, which sections and names view.
  std::vector<uint8_t> input_;
  // Names given to addSection; the list never moves them.
  std::forward_list<std::string> added_names_;
};

}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_ENGINE_IMAGE_H_
