#include "engine/layout.h"

#include <algorithm>
#include <numeric>
#include <string>

#include "absl/strings/escaping.h"
#include "absl/strings/str_cat.h"

namespace zelk_elf {
namespace engine {
namespace {

std::string hex(uint64_t v) { return absl::StrCat("0x", absl::Hex(v)); }

std::string sectionLabel(const Image& image, size_t index) {
  return absl::StrCat("section ", index, " (\"",
                      absl::CEscape(image.sections()[index].name), "\")");
}

absl::Status refuse(absl::string_view what) {
  return absl::FailedPreconditionError(what);
}

absl::Status tooBig(absl::string_view placing) {
  return refuse(absl::StrCat("the image would pass ", kMaxImageSize,
                             " bytes, the largest it can be (placing ", placing, ")"));
}

// pos += by, refusing wraparound and positions past kMaxImageSize.
bool advance(uint64_t& pos, uint64_t by) {
  if (by > kMaxImageSize || pos > kMaxImageSize - by) return false;
  pos += by;
  return true;
}

// Whether list `a` contains list `b` by the layout's merge walk: every index
// of `b` is matched in `a`, both taken as ascending. Strictly ascending
// lists are sets, compared run by run; other lists are walked index by index
// so that lists built out of order get this exact walk's answer, which the
// order of nested segments depends on. `work` counts the steps.
bool includes(const SectionList& a, bool a_set, const SectionList& b, bool b_set,
              uint64_t& work) {
  if (a_set && b_set) {
    const absl::Span<const SectionList::Run> ra = a.runs(), rb = b.runs();
    work += ra.size() + rb.size();
    size_t i = 0;
    for (const SectionList::Run& run : rb) {
      // Runs are maximal, so one run of `a` must hold the whole run.
      while (i < ra.size() && ra[i].last() < run.first) ++i;
      if (i == ra.size() || ra[i].first > run.first || ra[i].last() < run.last()) {
        return false;
      }
    }
    return true;
  }
  work += a.size() + b.size();
  auto i = a.begin(), j = b.begin();
  while (i != a.end() && j != b.end()) {
    if (*j < *i) return false;
    if (*i == *j) ++j;
    ++i;
  }
  return j == b.end();
}

// Places one segment and the sections it lists that are not placed yet.
absl::Status layOutSegment(Image& image, size_t index, absl::InlinedVector<bool, 64>& placed,
                           uint64_t& pos) {
  const FileHeader& h = image.header();
  Segment& g = image.segments()[index];
  const SectionList& list = g.sections;
  absl::Span<Section> sections = image.sections();
  uint64_t start = 0, filesz = 0, memsz = 0;
  if (g.header.type == kPtPhdr && list.empty()) {
    start = h.phoff;
    filesz = memsz = uint64_t{h.phentsize} * h.phnum;
  } else if (g.off_init && g.header.offset == 0) {
    start = 0;
    if (!list.empty()) filesz = memsz = pos;
  } else if (!list.empty() && !placed[list.front()]) {
    // Start at the first position congruent to the address modulo the
    // alignment, as loaders expect.
    const uint64_t a = g.header.align ? g.header.align : 1;
    const uint64_t want = g.header.vaddr % a, have = pos % a;
    if (!advance(pos, want >= have ? want - have : a - (have - want))) {
      return tooBig(absl::StrCat("segment ", index));
    }
    start = pos;
  } else if (!list.empty()) {
    start = sections[list.front()].header.offset;
  } else {
    start = pos;
  }

  for (uint16_t x : list) {
    Section& s = sections[x];
    const SectionHeader& sh = s.header;
    if (sh.type == kShtNull) {
      placed[x] = true;
      continue;
    }
    uint64_t pad = 0;
    if (!placed[x] && s.addr_init && sh.type != kShtNobits && sh.size != 0) {
      // Placed at the file position that matches its address.
      if (sh.addr < g.header.vaddr) {
        return refuse(absl::StrCat(sectionLabel(image, x), " lies at address ",
                                   hex(sh.addr), ", below segment ", index,
                                   " at ", hex(g.header.vaddr)));
      }
      const uint64_t want = sh.addr - g.header.vaddr;
      const uint64_t have = pos - start;
      if (want < have) {
        return refuse(absl::StrCat(sectionLabel(image, x), " at address ",
                                   hex(sh.addr), " overlaps what segment ", index,
                                   " places before it"));
      }
      pad = want - have;
    } else if (!placed[x] && !s.addr_init) {
      const uint64_t a = sh.addralign ? sh.addralign : 1;
      pad = (a - pos % a) % a;
    } else if (placed[x]) {
      // A member placed before the segment's start would wrap the sizes
      // around to gigabytes.
      if (sh.offset < start) {
        return refuse(absl::StrCat(sectionLabel(image, x),
                                   " lies before the start of segment ", index));
      }
      // Wraps on purpose: the sizes then run to this section's end.
      pad = sh.offset - start - filesz;
    }
    const bool tls_nobits_outside_tls = (sh.flags & kShfTls) &&
                                        g.header.type != kPtTls &&
                                        sh.type == kShtNobits;
    if ((sh.flags & kShfAlloc) && !tls_nobits_outside_tls) memsz += sh.size + pad;
    if (sh.type != kShtNobits) filesz += sh.size + pad;
    if (placed[x]) continue;
    if (!advance(pos, pad)) return tooBig(sectionLabel(image, x));
    if (!s.addr_init) {
      s.header.addr = image.fit(g.header.vaddr + (pos - start));
      s.addr_init = true;
    }
    if (x != 0) s.header.offset = pos;
    if (sh.type != kShtNobits && !advance(pos, sh.size)) {
      return tooBig(sectionLabel(image, x));
    }
    placed[x] = true;
  }
  g.header.filesz = image.fit(filesz);
  g.header.memsz = image.fit(std::max(g.header.memsz, memsz));
  g.header.offset = start;
  g.off_init = true;
  return absl::OkStatus();
}

}  // namespace

// The layout takes segments from a queue: a segment still contained in one
// that is queued goes to the back, any other is placed. Seen per round of
// the queue, a segment is placed in the first round in which every segment
// containing it was placed before its turn: its level is
//   max(1, max over containers t of level(t) + (t comes after it ? 1 : 0)),
// and the order is by level, then by queue position. Containers list more
// sections, so levels follow from the longest lists down, each list
// compared only with longer ones, run by run.
absl::StatusOr<SegmentOrder> segmentOrder(const Image& image) {
  const absl::Span<const Segment> segments = image.segments();
  const size_t m = segments.size();
  // Initialized segments at offset 0 are pulled to the front.
  absl::InlinedVector<size_t, 16> w(m);
  std::iota(w.begin(), w.end(), 0);
  size_t k = 0;
  for (size_t i = 0; i < m; ++i) {
    const Segment& g = segments[w[i]];
    if (i != k && g.off_init && g.header.offset == 0) {
      if (segments[w[k]].header.offset == 0) ++k;
      std::swap(w[i], w[k]);
      ++k;
    }
  }

  // By queue position: what the containment tests need of each list.
  struct Listed {
    const SectionList* list;
    size_t size;
    uint32_t front, back;
    bool set;     // strictly ascending
    bool gapless; // a set without gaps: one run
    uint32_t level;
  };
  absl::InlinedVector<Listed, 16> at(m);
  for (size_t p = 0; p < m; ++p) {
    const SectionList& list = segments[w[p]].sections;
    const bool set = list.ascending();
    at[p] = Listed{&list, list.size(), list.empty() ? 0u : list.front(),
                   list.empty() ? 0u : list.back(), set, set && list.runs().size() == 1, 1};
  }
  absl::InlinedVector<size_t, 16> by_size(m);
  std::iota(by_size.begin(), by_size.end(), 0);
  std::sort(by_size.begin(), by_size.end(), [&](size_t a, size_t b) {
    return at[a].size != at[b].size ? at[a].size > at[b].size : a < b;
  });

  uint64_t work = 0;
  size_t longer = 0;  // by_size[0, longer) list more than the current one
  for (size_t i = 0; i < m; ++i) {
    const size_t s = by_size[i];
    Listed& b = at[s];
    if (b.size == 0) break;  // the empty lists come last; see below
    while (at[by_size[longer]].size > b.size) ++longer;
    for (size_t j = 0; j < longer; ++j) {
      const size_t t = by_size[j];
      const Listed& a = at[t];
      ++work;
      bool contained;
      if (a.set && b.set) {
        // Sets: bounds first; a gapless one holds whatever lies within them.
        if (a.front > b.front || a.back < b.back) continue;
        contained = a.gapless || includes(*a.list, true, *b.list, true, work);
      } else {
        contained = includes(*a.list, a.set, *b.list, b.set, work);
      }
      if (contained) b.level = std::max<uint32_t>(b.level, a.level + (t > s ? 1 : 0));
    }
    if (work > kMaxSegmentWork) {
      return refuse(absl::StrCat("ordering the nested segments needs more than ",
                                 kMaxSegmentWork, " comparisons"));
    }
  }
  // An empty list is contained in every non-empty one: it follows the
  // highest level before it, and one past the highest after it.
  absl::InlinedVector<uint32_t, 16> after(m + 1, 0);
  for (size_t p = m; p-- > 0;) {
    after[p] = std::max(after[p + 1], at[p].size ? at[p].level : 0u);
  }
  uint32_t highest_before = 0;
  for (size_t p = 0; p < m; ++p) {
    if (at[p].size != 0) {
      highest_before = std::max(highest_before, at[p].level);
      continue;
    }
    at[p].level = std::max({1u, highest_before, after[p + 1] ? after[p + 1] + 1 : 0u});
  }

  SegmentOrder order(m);
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    return at[a].level != at[b].level ? at[a].level < at[b].level : a < b;
  });
  for (size_t& p : order) p = w[p];
  return order;
}

absl::StatusOr<uint64_t> layOut(Image& image) {
  const FileHeader& ident = image.header();
  if (ident.ident[4] != kClass32 && ident.ident[4] != kClass64) {
    return refuse(absl::StrCat("unknown ELF class ", ident.ident[4]));
  }
  if (ident.ident[5] != kDataLsb && ident.ident[5] != kDataMsb) {
    return refuse(absl::StrCat("unknown ELF byte order ", ident.ident[5]));
  }
  const size_t section_count = image.sections().size();
  const size_t segment_count = image.segments().size();
  // The header counts are 16 bits wide.
  if (section_count > 0xFFFF || segment_count > 0xFFFF) {
    return refuse(absl::StrCat(section_count, " sections and ", segment_count,
                               " segments do not fit the header's 16-bit counts"));
  }
  for (size_t i = 0; i < segment_count; ++i) {
    for (uint16_t x : image.segments()[i].sections) {
      if (x >= section_count) {
        return refuse(absl::StrCat("segment ", i, " lists section ", x, " of ",
                                   section_count));
      }
    }
  }
  absl::StatusOr<SegmentOrder> order = segmentOrder(image);
  if (!order.ok()) return order.status();

  FileHeader& h = image.header();
  const RecordFormat& f = image.format();
  // Stored record sizes below the real ones would make records overlap.
  h.ehsize = std::max<uint16_t>(h.ehsize, f.file_header_size);
  if (segment_count != 0) {
    h.phentsize = std::max<uint16_t>(h.phentsize, f.segment_header_size);
  }
  if (section_count != 0) {
    h.shentsize = std::max<uint16_t>(h.shentsize, f.section_header_size);
  }
  h.phnum = static_cast<uint16_t>(segment_count);
  h.phoff = segment_count != 0 ? h.ehsize : 0;
  h.shnum = static_cast<uint16_t>(section_count);
  h.shoff = 0;
  uint64_t pos = h.ehsize;
  if (!advance(pos, uint64_t{h.phentsize} * segment_count)) {
    return tooBig("the program headers");
  }

  // A segment is at least as aligned as the sections it carries.
  for (Segment& g : image.segments()) {
    for (uint16_t x : g.sections) {
      g.header.align = std::max(g.header.align, image.sections()[x].header.addralign);
    }
  }

  absl::InlinedVector<bool, 64> placed(section_count, false);
  for (size_t g : *order) {
    if (absl::Status s = layOutSegment(image, g, placed, pos); !s.ok()) return s;
  }

  // Every segment has been laid out, so the sections still unplaced are
  // the ones no segment lists: they follow in index order.
  for (size_t i = 0; i < section_count; ++i) {
    if (placed[i]) continue;
    Section& s = image.sections()[i];
    const uint64_t a = s.header.addralign;
    if (a > 1 && pos % a != 0 && !advance(pos, a - pos % a)) {
      return tooBig(sectionLabel(image, i));
    }
    if (i != 0) s.header.offset = pos;
    if (s.header.type != kShtNull && s.header.type != kShtNobits &&
        !advance(pos, s.header.size)) {
      return tooBig(sectionLabel(image, i));
    }
  }

  // The section header table follows after 1 to 16 bytes, never 0; the
  // file ends with its last record.
  if (!advance(pos, 16 - pos % 16)) return tooBig("the section header table");
  uint64_t end = pos;
  if (!advance(end, tableBytes(section_count, h.shentsize, f.section_header_size))) {
    return tooBig("the section header table");
  }
  h.shoff = pos;
  // The file ends with the last record written: the section header table,
  // or without sections the program headers or the file header.
  if (section_count != 0) return end;
  if (segment_count != 0) {
    return h.phoff + tableBytes(segment_count, h.phentsize, f.segment_header_size);
  }
  return uint64_t{f.file_header_size};
}

}  // namespace engine
}  // namespace zelk_elf
