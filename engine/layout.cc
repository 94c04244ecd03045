// Save layout: assigns file offsets to segments and sections, segment sizes,
// and the header's table fields. The placement rules reproduce the reference
// writer's output byte for byte; every position is checked for wraparound and
// kept within kMaxFileOffset.
#include <algorithm>
#include <deque>
#include <vector>

#include "engine/image_state.h"

namespace zelk_elf {
namespace engine {
namespace {

// pos += by, refusing wraparound and positions past kMaxFileOffset.
bool advance(uint64_t& pos, uint64_t by) {
  if (by > kMaxFileOffset || pos > kMaxFileOffset - by) return false;
  pos += by;
  return true;
}

// Merge walk over two lists taken as ascending: is every element of `b` in
// `a`? Lists built out of order give the same answers as the reference.
bool includes(const std::vector<uint16_t>& a, const std::vector<uint16_t>& b) {
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (b[j] < a[i]) return false;
    if (a[i] < b[j]) {
      ++i;
    } else {
      ++i;
      ++j;
    }
  }
  return j == b.size();
}

bool contained(const SegmentState& s, const SegmentState& t) {
  return s.sections.size() < t.sections.size() &&
         includes(t.sections, s.sections);
}

// The order in which segments are laid out: initialized segments at offset 0
// first (they cover the headers), then every segment only after all the
// segments that contain it.
std::vector<SegmentState*> layoutOrder(ImageState& image) {
  std::vector<SegmentState*> w;
  for (auto& g : image.segments) w.push_back(&ImageInternals::of(*g));
  size_t k = 0;
  for (size_t i = 0; i < w.size(); ++i) {
    if (i != k && w[i]->off_init && w[i]->header.offset == 0) {
      if (w[k]->header.offset == 0) ++k;
      std::swap(w[i], w[k]);
      ++k;
    }
  }
  // A segment is taken from the front of the queue when no segment still
  // queued contains it, otherwise it goes to the back. `containers` counts
  // the queued segments containing each one, so a turn costs O(1).
  const size_t m = w.size();
  std::vector<size_t> containers(m, 0);
  for (size_t s = 0; s < m; ++s) {
    for (size_t t = 0; t < m; ++t) {
      if (s != t && contained(*w[s], *w[t])) ++containers[s];
    }
  }
  std::deque<size_t> queue;
  for (size_t i = 0; i < m; ++i) queue.push_back(i);
  std::vector<bool> queued(m, true);
  std::vector<SegmentState*> order;
  order.reserve(m);
  while (!queue.empty()) {
    const size_t s = queue.front();
    queue.pop_front();
    if (containers[s] != 0) {
      queue.push_back(s);
      continue;
    }
    order.push_back(w[s]);
    queued[s] = false;
    for (size_t u = 0; u < m; ++u) {
      if (queued[u] && contained(*w[u], *w[s])) --containers[u];
    }
  }
  return order;
}

// Places one segment and the sections it lists that are not placed yet.
bool layoutSegment(ImageState& image, SegmentState& g,
                   std::vector<bool>& generated, uint64_t& pos) {
  const FileHeader& h = image.header;
  const std::vector<uint16_t>& list = g.sections;
  SectionState* first =
      list.empty() ? nullptr : &ImageInternals::of(*image.sections[list[0]]);
  uint64_t start = 0, filesz = 0, memsz = 0;
  if (g.header.type == kPtPhdr && list.empty()) {
    start = h.phoff;
    filesz = memsz = uint64_t{h.phentsize} * h.phnum;
  } else if (g.off_init && g.header.offset == 0) {
    start = 0;
    if (first) filesz = memsz = pos;
  } else if (first && !generated[list[0]]) {
    // Start at the first position congruent to the address modulo the
    // alignment, as loaders expect.
    const uint64_t a = g.header.align ? g.header.align : 1;
    const uint64_t want = g.header.vaddr % a, have = pos % a;
    if (!advance(pos, want >= have ? want - have : a - (have - want))) {
      return false;
    }
    start = pos;
  } else if (first) {
    start = first->header.offset;
  } else {
    start = pos;
  }

  for (uint16_t x : list) {
    SectionState& s = ImageInternals::of(*image.sections[x]);
    const SectionHeader& sh = s.header;
    if (sh.type == kShtNull) {
      generated[x] = true;
      continue;
    }
    uint64_t pad = 0;
    if (!generated[x] && s.addr_init && sh.type != kShtNobits &&
        sh.size != 0) {
      // Placed at the file position that matches its address.
      if (sh.addr < g.header.vaddr) return false;
      const uint64_t want = sh.addr - g.header.vaddr;
      const uint64_t have = pos - start;
      if (want < have) return false;
      pad = want - have;
    } else if (!generated[x] && !s.addr_init) {
      const uint64_t a = sh.addralign ? sh.addralign : 1;
      pad = (a - pos % a) % a;
    } else if (generated[x]) {
      // A member placed before the segment's start would wrap the sizes
      // around to gigabytes.
      if (sh.offset < start) return false;
      // Wraps on purpose: the sizes then run to this section's end.
      pad = sh.offset - start - filesz;
    }
    const bool tls_nobits_outside_tls = (sh.flags & kShfTls) &&
                                        g.header.type != kPtTls &&
                                        sh.type == kShtNobits;
    if ((sh.flags & kShfAlloc) && !tls_nobits_outside_tls) {
      memsz += sh.size + pad;
    }
    if (sh.type != kShtNobits) filesz += sh.size + pad;
    if (generated[x]) continue;
    if (!advance(pos, pad)) return false;
    if (!s.addr_init) {
      s.header.addr = s.fit(g.header.vaddr + (pos - start));
      s.addr_init = true;
    }
    if (x != 0) s.header.offset = pos;
    if (sh.type != kShtNobits && !advance(pos, sh.size)) return false;
    generated[x] = true;
  }
  g.header.filesz = g.fit(filesz);
  g.header.memsz = g.fit(std::max(g.header.memsz, memsz));
  g.header.offset = start;
  g.off_init = true;
  return true;
}

}  // namespace

bool ImageInternals::layout(ImageState& image) {
  const FileHeader& ident = image.header;
  if (ident.ident[4] != kClass32 && ident.ident[4] != kClass64) return false;
  if (ident.ident[5] != kDataLsb && ident.ident[5] != kDataMsb) return false;
  const size_t section_count = image.sections.size();
  const size_t segment_count = image.segments.size();
  // The header counts are 16 bits wide.
  if (section_count > 0xFFFF || segment_count > 0xFFFF) return false;
  for (const auto& g : image.segments) {
    for (uint16_t x : ImageInternals::of(*g).sections) {
      if (x >= section_count) return false;
    }
  }

  FileHeader& h = image.header;
  const Codec codec = image.codec();
  // Stored record sizes below the real ones would make records overlap.
  h.ehsize = std::max<uint16_t>(h.ehsize, codec.headerSize());
  if (segment_count != 0) {
    h.phentsize = std::max<uint16_t>(h.phentsize, codec.segmentHeaderSize());
  }
  if (section_count != 0) {
    h.shentsize = std::max<uint16_t>(h.shentsize, codec.sectionHeaderSize());
  }
  h.phnum = static_cast<uint16_t>(segment_count);
  h.phoff = segment_count != 0 ? h.ehsize : 0;
  h.shnum = static_cast<uint16_t>(section_count);
  h.shoff = 0;
  uint64_t pos = h.ehsize;
  if (!advance(pos, uint64_t{h.phentsize} * segment_count)) return false;

  // A segment is at least as aligned as the sections it carries.
  for (auto& g : image.segments) {
    SegmentState& seg = ImageInternals::of(*g);
    for (uint16_t x : seg.sections) {
      const uint64_t a = image.sections[x]->addrAlign();
      if (a > seg.header.align) seg.header.align = a;
    }
  }

  std::vector<bool> generated(section_count, false);
  for (SegmentState* g : layoutOrder(image)) {
    if (!layoutSegment(image, *g, generated, pos)) return false;
  }

  std::vector<bool> listed(section_count, false);
  for (const auto& g : image.segments) {
    for (uint16_t x : ImageInternals::of(*g).sections) listed[x] = true;
  }
  for (size_t i = 0; i < section_count; ++i) {
    if (listed[i]) continue;
    SectionState& s = ImageInternals::of(*image.sections[i]);
    const uint64_t a = s.header.addralign;
    if (a > 1 && pos % a != 0 && !advance(pos, a - pos % a)) return false;
    if (i != 0) s.header.offset = pos;
    if (s.header.type != kShtNull && s.header.type != kShtNobits &&
        !advance(pos, s.header.size)) {
      return false;
    }
  }

  // The section header table follows after 1 to 16 bytes, never 0.
  if (!advance(pos, 16 - pos % 16)) return false;
  uint64_t end = pos;
  if (!advance(end, uint64_t{h.shentsize} * section_count)) return false;
  h.shoff = pos;
  return true;
}

}  // namespace engine
}  // namespace zelk_elf
