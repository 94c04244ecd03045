// Loading: header, section table, held bytes, names, segments and their
// section lists. Every count, size and offset read is checked against the
// input before use.
#include <algorithm>
#include <cstring>
#include <limits>

#include "engine/image_state.h"
#include "engine/records.h"

namespace zelk_elf {
namespace engine {
namespace {

// Segment membership costs segments x sections, and the segment order at
// save segments squared; hostile counts beyond this are refused.
constexpr uint64_t kMaxMembershipWork = uint64_t{1} << 24;

// Section names are copied out of the string table; names that overlap
// (all sections pointing at one long string) could otherwise multiply it.
constexpr uint64_t kNameBudgetSlack = uint64_t{1} << 20;

// True when [offset, offset + length) lies inside an input of `size` bytes.
bool inside(uint64_t offset, uint64_t length, uint64_t size) {
  return offset <= size && length <= size - offset;
}

// Offset of entry `i` of a table, or nothing when it overflows.
bool entryOffset(uint64_t base, uint64_t i, uint64_t entsize, uint64_t* out) {
  const uint64_t step = i * entsize;  // both at most 16 bits wide
  if (base > std::numeric_limits<uint64_t>::max() - step) return false;
  *out = base + step;
  return true;
}

// lo <= b, b + n <= hi, b < hi, with the sums wrapping as the layout's do.
bool within(uint64_t b, uint64_t n, uint64_t lo, uint64_t hi) {
  return lo <= b && b + n <= hi && b < hi;
}

// Reads the section table. Entries lie in ascending order; the first one
// not wholly inside the input keeps the bytes that are there (the rest read
// as zero) and every later one reads as all zeros, none of them holding
// data. Returns whether the table was cut short that way. Memory stays
// bounded whatever the count claims: one record per entry, and data only
// ever views the shared input.
bool readSections(const SharedInput& input, const Codec& codec,
                  ImageState& out) {
  const FileHeader& h = out.header;
  const uint64_t n = input->size();
  const size_t entry_size = codec.sectionHeaderSize();
  // An entry size below the record size leaves the image without sections.
  if (h.shnum == 0 || h.shentsize < entry_size) return false;
  out.sections.reserve(h.shnum);
  bool cut = false;
  for (uint64_t i = 0; i < h.shnum; ++i) {
    auto section = ImageInternals::makeSection(i, codec.wide());
    SectionState& s = ImageInternals::of(*section);
    s.addr_init = true;
    uint64_t at = 0;
    const bool addressable = entryOffset(h.shoff, i, h.shentsize, &at);
    const bool whole = addressable && inside(at, entry_size, n);
    if (!cut && !whole) {
      cut = true;
      uint8_t partial[64] = {};
      if (addressable && at < n) {
        std::memcpy(partial, input->data() + at,
                    static_cast<size_t>(std::min<uint64_t>(n - at, entry_size)));
      }
      s.header = decodeSectionHeader(codec, partial);
    } else if (!cut) {
      s.header = decodeSectionHeader(codec, input->data() + at);
      const SectionHeader& sh = s.header;
      if (sh.type != kShtNull && sh.type != kShtNobits && sh.offset < n) {
        s.held = static_cast<size_t>(std::min<uint64_t>(sh.size, n - sh.offset));
        if (s.held != 0) {
          s.input = input;
          s.input_offset = static_cast<size_t>(sh.offset);
        }
      }
    }
    out.sections.push_back(std::move(section));
  }
  return cut;
}

bool readNames(const ImageState& image, uint64_t input_size) {
  const size_t table_index = image.header.shstrndx;
  if (table_index == 0 || table_index >= image.sections.size()) return true;
  const SectionState& table = ImageInternals::of(*image.sections[table_index]);
  const uint8_t* bytes = table.data();
  if (bytes == nullptr) return true;
  const size_t held = table.held;
  // Past the last NUL no name can end; knowing where it lies keeps every
  // lookup proportional to the name it finds.
  size_t end = held;
  while (end > 0 && bytes[end - 1] != 0) --end;
  uint64_t budget = 2 * input_size + kNameBudgetSlack;
  for (const auto& section : image.sections) {
    SectionState& s = ImageInternals::of(*section);
    const uint64_t k = s.header.name;
    if (k >= end) continue;
    const size_t length =
        strlen(reinterpret_cast<const char*>(bytes + k));  // ends before `end`
    if (length > budget) return false;
    budget -= length;
    s.name.assign(reinterpret_cast<const char*>(bytes + k), length);
  }
  return true;
}

bool readSegments(const SharedInput& input, const Codec& codec,
                  ImageState& out) {
  const FileHeader& h = out.header;
  const uint64_t n = input->size();
  if (h.phnum == 0) return true;
  const size_t entry_size = codec.segmentHeaderSize();
  if (h.phentsize < entry_size) return false;
  const uint64_t sections = out.sections.size();
  if (uint64_t{h.phnum} * std::max<uint64_t>(sections, h.phnum) >
      kMaxMembershipWork) {
    return false;
  }
  uint64_t last = 0;
  if (!entryOffset(h.phoff, h.phnum - 1u, h.phentsize, &last) ||
      !inside(last, entry_size, n)) {
    return false;
  }
  out.segments.reserve(h.phnum);
  for (uint64_t i = 0; i < h.phnum; ++i) {
    const uint64_t at = h.phoff + i * h.phentsize;
    auto segment = ImageInternals::makeSegment(i, codec.wide());
    SegmentState& g = ImageInternals::of(*segment);
    g.header = decodeSegmentHeader(codec, input->data() + at);
    g.off_init = true;
    const SegmentHeader& ph = g.header;
    if (ph.type != kPtNull && ph.filesz != 0 &&
        !inside(ph.offset, ph.filesz, n)) {
      return false;
    }
    const bool tls_segment = ph.type == kPtTls;
    for (const auto& section : out.sections) {
      const SectionState& s = ImageInternals::of(*section);
      const SectionHeader& sh = s.header;
      const bool in =
          (sh.flags & kShfAlloc)
              ? within(sh.addr, sh.size, ph.vaddr, ph.vaddr + ph.memsz)
              : within(sh.offset, sh.size, ph.offset, ph.offset + ph.filesz);
      // TLS sections belong to PT_TLS segments only, and those hold nothing
      // else.
      if (in && tls_segment == ((sh.flags & kShfTls) != 0)) {
        g.sections.push_back(static_cast<uint16_t>(s.index));
      }
    }
    out.segments.push_back(std::move(segment));
  }
  return true;
}

}  // namespace

bool ImageInternals::read(absl::Span<const uint8_t> bytes, ImageState& out) {
  if (bytes.size() < 16) return false;
  static constexpr uint8_t kMagic[4] = {0x7F, 'E', 'L', 'F'};
  if (std::memcmp(bytes.data(), kMagic, 4) != 0) return false;
  const uint8_t elf_class = bytes[4];
  const uint8_t encoding = bytes[5];
  if (elf_class != kClass32 && elf_class != kClass64) return false;
  if (encoding != kDataLsb && encoding != kDataMsb) return false;
  const Codec codec(encoding == kDataMsb, elf_class == kClass64);
  if (bytes.size() < codec.headerSize()) return false;

  // One copy of the input; sections view it until they are changed.
  SharedInput input =
      std::make_shared<const std::vector<uint8_t>>(bytes.begin(), bytes.end());
  out.header = decodeFileHeader(codec, input->data());
  const bool table_cut = readSections(input, codec, out);
  if (!readNames(out, input->size())) return false;
  // A cut section table leaves nothing trustworthy behind it: program
  // headers are then refused.
  if (table_cut && out.header.phnum != 0) return false;
  return readSegments(input, codec, out);
}

}  // namespace engine
}  // namespace zelk_elf
