// Loading: header, section table, held bytes, names, segments and their
// section lists. Every count, size and offset read is checked through
// ByteView before use, and a refusal says what failed and where.
#include <algorithm>
#include <cstring>
#include <utility>

#include "absl/container/inlined_vector.h"
#include "absl/strings/str_cat.h"
#include "engine/image.h"

namespace zelk_elf {
namespace engine {

// Lets the reader point loaded sections at the image's copy of the input.
class ImageReader {
 public:
  // A loaded section: its header as read, its address counted as set.
  static Section& add(std::vector<Section>& out, const SectionHeader& header) {
    return out.emplace_back(header, true);
  }
  static void view(Section& s, absl::Span<const uint8_t> bytes) {
    s.bytes_ = bytes.empty() ? absl::Span<const uint8_t>() : bytes;
  }
};

namespace {

std::string hex(uint64_t v) { return absl::StrCat("0x", absl::Hex(v)); }

absl::Status refuse(absl::string_view what) {
  return absl::InvalidArgumentError(what);
}

// The held bytes of a section recorded at [offset, offset + size): none for
// SHT_NULL and SHT_NOBITS or past the end, else the part inside the input.
absl::Span<const uint8_t> heldBytes(const SectionHeader& h, ByteView input) {
  if (h.type == kShtNull || h.type == kShtNobits) return {};
  const ByteView rest = input.from(h.offset);
  return rest.span().first(static_cast<size_t>(std::min<uint64_t>(rest.size(), h.size)));
}

// Reads the section table. Entries lie in ascending order; the first one
// not wholly inside the input keeps the bytes that are there (the rest read
// as zero) and every later one reads as all zeros, none of them holding
// data. Returns the index of that first cut entry, or the count when the
// table is whole. Memory stays one record per counted entry.
size_t readSections(ByteView input, const FileHeader& h, const RecordFormat& f,
                    std::vector<Section>& out) {
  const size_t record = f.section_header_size;
  // An entry size below the record size leaves the image without sections.
  if (h.shnum == 0 || h.shentsize < record) return 0;
  out.reserve(h.shnum);
  // Every loaded section counts as having its address set.
  const auto add = [&](ByteView entry, bool holds_data) {
    SectionHeader header;
    f.decodeSectionHeader(entry, &header);
    Section& s = ImageReader::add(out, header);
    if (holds_data) ImageReader::view(s, heldBytes(s.header, input));
  };
  if (auto table = input.table(h.shoff, h.shnum, h.shentsize, record)) {
    for (size_t i = 0; i < table->size(); ++i) add((*table)[i], true);
    return h.shnum;
  }
  size_t cut = h.shnum;
  for (size_t i = 0; i < h.shnum; ++i) {
    if (cut != h.shnum) {
      ImageReader::add(out, SectionHeader());
      continue;
    }
    const absl::optional<uint64_t> at = ByteView::entryOffset(h.shoff, i, h.shentsize);
    if (const absl::optional<ByteView> entry = at ? input.slice(*at, record) : absl::nullopt) {
      add(*entry, true);
      continue;
    }
    uint8_t partial[64] = {};
    const ByteView there = at ? input.from(*at) : ByteView();
    if (!there.empty()) std::memcpy(partial, there.data(), std::min(there.size(), record));
    add(ByteView(partial, record), false);
    cut = i;
  }
  return cut;
}

// A section index with the value it is ordered by.
struct Keyed {
  uint64_t key;
  uint32_t index;
  bool operator<(const Keyed& o) const {
    return key != o.key ? key < o.key : index < o.index;
  }
};

// Resolves names once, through the table e_shstrndx names: a name is the
// bytes from its offset to the next NUL the table holds. Offsets are taken
// in ascending order, so each NUL is searched for once however many names
// share a string.
void readNames(const FileHeader& h, std::vector<Section>& sections) {
  if (h.shstrndx == 0 || h.shstrndx >= sections.size()) return;
  const absl::Span<const uint8_t> table = sections[h.shstrndx].bytes();
  if (table.empty()) return;
  absl::InlinedVector<Keyed, 64> order(sections.size());
  for (uint32_t i = 0; i < order.size(); ++i) {
    order[i].key = sections[i].header.name;
    order[i].index = i;
  }
  if (!std::is_sorted(order.begin(), order.end())) std::sort(order.begin(), order.end());
  size_t nul = 0;  // first NUL at or after the previous offset
  bool nul_valid = false;
  for (const auto [k, i] : order) {
    if (k >= table.size()) break;
    if (!nul_valid || k > nul) {
      const void* found = std::memchr(table.data() + k, 0, table.size() - k);
      if (found == nullptr) break;  // no name ends at or after k
      nul = static_cast<const uint8_t*>(found) - table.data();
      nul_valid = true;
    }
    sections[i].name = absl::string_view(
        reinterpret_cast<const char*>(table.data() + k), nul - k);
  }
}

// Segment membership: ALLOC sections by address against the memory range,
// the others by offset against the file range; TLS sections belong to
// PT_TLS segments only, and those hold nothing else. Sections are sorted by
// their start once, so each segment looks only at sections starting inside
// its range; members come out in index order.
absl::Status computeMembership(const std::vector<Section>& sections,
                               std::vector<Segment>& segments) {
  // Each group sorted by where its sections start, index breaking ties.
  absl::InlinedVector<Keyed, 64> by_addr, by_offset;
  for (uint32_t i = 0; i < sections.size(); ++i) {
    const SectionHeader& h = sections[i].header;
    Keyed& k = (h.flags & kShfAlloc) ? by_addr.emplace_back() : by_offset.emplace_back();
    k.key = (h.flags & kShfAlloc) ? h.addr : h.offset;
    k.index = i;
  }
  for (auto* group : {&by_addr, &by_offset}) {
    if (!std::is_sorted(group->begin(), group->end())) std::sort(group->begin(), group->end());
  }

  uint64_t checks = 0;
  std::vector<uint16_t> members;  // clear() keeps its capacity across segments
  for (Segment& g : segments) {
    members.clear();
    const SegmentHeader& ph = g.header;
    const bool tls_segment = ph.type == kPtTls;
    const auto collect = [&](const absl::InlinedVector<Keyed, 64>& sorted, uint64_t lo,
                             uint64_t hi) {
      if (hi <= lo) return;  // empty, or the end wraps: nothing is inside
      auto it = std::lower_bound(sorted.begin(), sorted.end(), Keyed{lo, 0});
      for (; it != sorted.end() && it->key < hi; ++it) {
        ++checks;
        const SectionHeader& sh = sections[it->index].header;
        // lo <= key < hi by the search and the loop; the end wraps as the
        // layout's sums do.
        if (it->key + sh.size <= hi &&
            tls_segment == ((sh.flags & kShfTls) != 0)) {
          members.push_back(static_cast<uint16_t>(it->index));
        }
      }
    };
    collect(by_addr, ph.vaddr, ph.vaddr + ph.memsz);
    collect(by_offset, ph.offset, ph.offset + ph.filesz);
    if (checks > kMaxSegmentWork) {
      return refuse(absl::StrCat("segment membership needs more than ", kMaxSegmentWork,
                                 " comparisons"));
    }
    if (!std::is_sorted(members.begin(), members.end())) {
      std::sort(members.begin(), members.end());
    }
    for (uint16_t x : members) g.sections.push_back(x);
  }
  return absl::OkStatus();
}

absl::Status readSegments(ByteView input, const FileHeader& h, const RecordFormat& f,
                          std::vector<Segment>& out) {
  const size_t record = f.segment_header_size;
  if (h.phentsize < record) {
    return refuse(absl::StrCat("program header entry size ", h.phentsize,
                               " is below the record size ", record));
  }
  const auto table = input.table(h.phoff, h.phnum, h.phentsize, record);
  if (!table) {
    for (size_t i = 0; i < h.phnum; ++i) {
      const auto at = ByteView::entryOffset(h.phoff, i, h.phentsize);
      if (!at || !input.contains(*at, record)) {
        return refuse(absl::StrCat("program header table ends beyond the input (entry ",
                                   i, " at ", at ? hex(*at) : "an offset past 2^64", ")"));
      }
    }
    return refuse("program header table ends beyond the input");
  }
  out.resize(h.phnum);
  for (size_t i = 0; i < out.size(); ++i) {
    Segment& g = out[i];
    f.decodeSegmentHeader((*table)[i], &g.header);
    g.off_init = true;
    const SegmentHeader& ph = g.header;
    if (ph.type != kPtNull && ph.filesz != 0 && !input.contains(ph.offset, ph.filesz)) {
      return refuse(absl::StrCat("segment ", i, " claims file bytes [", hex(ph.offset),
                                 ", +", hex(ph.filesz), ") beyond the input of ",
                                 input.size(), " bytes"));
    }
  }
  return absl::OkStatus();
}

}  // namespace


absl::Status Image::load(absl::Span<const uint8_t> bytes) {
  static constexpr uint8_t kMagic[4] = {0x7F, 'E', 'L', 'F'};
  if (bytes.size() < 4 || std::memcmp(bytes.data(), kMagic, 4) != 0) {
    return refuse("not an ELF image (no ELF magic number)");
  }
  if (bytes.size() < 16) {
    return refuse(absl::StrCat("ELF identification cut short (", bytes.size(),
                               " of 16 bytes)"));
  }
  const uint8_t elf_class = bytes[4], encoding = bytes[5];
  if (elf_class != kClass32 && elf_class != kClass64) {
    return refuse(absl::StrCat("unknown ELF class ", elf_class));
  }
  if (encoding != kDataLsb && encoding != kDataMsb) {
    return refuse(absl::StrCat("unknown ELF byte order ", encoding));
  }
  const RecordFormat& f = recordFormat(elf_class, encoding);
  if (bytes.size() < f.file_header_size) {
    return refuse(absl::StrCat("ELF header cut short (", bytes.size(), " of ",
                               f.file_header_size, " bytes)"));
  }

  // One copy of the input; sections and names view it until changed.
  std::vector<uint8_t> input(bytes.begin(), bytes.end());
  const ByteView view(input.data(), input.size());
  FileHeader h;
  f.decodeFileHeader(view.slice(0, f.file_header_size).value(), &h);
  std::vector<Section> sections;
  const size_t whole = readSections(view, h, f, sections);
  readNames(h, sections);
  std::vector<Segment> segments;
  if (h.phnum != 0) {
    if (whole != sections.size()) {
      // A cut section table leaves nothing trustworthy behind it.
      const uint64_t at = ByteView::entryOffset(h.shoff, whole, h.shentsize).value_or(0);
      return refuse(absl::StrCat("section header table ends beyond the input (entry ",
                                 whole, " at ", hex(at), "), so the program headers "
                                 "cannot be read"));
    }
    if (absl::Status s = readSegments(view, h, f, segments); !s.ok()) return s;
    if (absl::Status s = computeMembership(sections, segments); !s.ok()) return s;
  }

  header_ = h;
  sections_ = std::move(sections);
  segments_ = std::move(segments);
  input_ = std::move(input);
  added_names_.clear();
  name_index_.clear();
  indexed_ = false;
  return absl::OkStatus();
}

}  // namespace engine
}  // namespace zelk_elf
