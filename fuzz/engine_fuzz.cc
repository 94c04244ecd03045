// Load, save, load again: the engine must not crash on any input, and an
// image it saved must load back with the same section names and bytes.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "engine/image.h"

using zelk_elf::engine::Image;

namespace {

// Hostile layouts may legitimately ask for gigabytes of zero padding; a sink
// that refuses output past 64 MiB makes such saves fail instead of
// exhausting the fuzzer's memory.
class CappedBuf : public std::stringbuf {
 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    written_ += static_cast<size_t>(n);
    if (written_ > kCap) return 0;
    return std::stringbuf::xsputn(s, n);
  }
  int_type overflow(int_type c) override {
    if (++written_ > kCap) return traits_type::eof();
    return std::stringbuf::overflow(c);
  }

 private:
  static constexpr size_t kCap = size_t{64} << 20;
  size_t written_ = 0;  // bytes offered, overwrites included
};

bool overlaps(uint64_t off, uint64_t size, uint64_t lo, uint64_t len) {
  return len != 0 && size != 0 && off < lo + len && lo < off + size;
}

bool overlapsHeaders(const Image& image, uint64_t off, uint64_t size) {
  const auto& h = image.header();
  return overlaps(off, size, 0, h.ehsize) ||
         overlaps(off, size, h.phoff, uint64_t{h.phentsize} * h.phnum) ||
         overlaps(off, size, h.shoff, uint64_t{h.shentsize} * h.shnum);
}

// Whether a segment of the laid-out image claims bytes past the end of the
// saved file: a PT_PHDR segment covers whole program header entries, while
// the file ends with the last record when the entries are wider. Such an
// image does not load again: the layout rules make it so.
bool segmentPastEnd(const Image& image, uint64_t file_size) {
  for (size_t i = 0; i < image.segments().size(); ++i) {
    const auto& g = image.segments()[i];
    if (g.header.type != 0 && g.header.filesz != 0 &&
        g.header.offset + g.header.filesz > file_size) {
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Image image;
  if (!image.load({data, size}).ok()) return 0;
  CappedBuf buf;
  std::ostream out(&buf);
  if (!image.save(out).ok()) return 0;
  const std::string saved = buf.str();
  Image again;
  if (!again.load({reinterpret_cast<const uint8_t*>(saved.data()),
                   saved.size()}).ok()) {
    if (!segmentPastEnd(image, saved.size())) std::abort();
    return 0;
  }
  if (again.sections().size() != image.sections().size()) std::abort();
  for (size_t i = 0; i < image.sections().size(); ++i) {
    const auto& a = image.sections()[i];
    const auto& b = again.sections()[i];
    // A name that did not resolve ("") may resolve after the save: a string
    // table cut short at load is written out padded with zeros.
    if (!a.name.empty() && a.name.find('\0') == std::string::npos &&
        a.name != b.name) {
      std::abort();
    }
    // The null entry's bytes are never written, whatever type it claims,
    // and a section placed over the file header or a header table shares
    // its bytes with them.
    if (i == 0 || overlapsHeaders(again, b.header.offset, a.bytes().size())) continue;
    // Bytes come back whole; a section cut short at load gains zeros.
    const auto x = a.bytes(), y = b.bytes();
    if (y.size() < x.size() && a.header.size >= x.size()) std::abort();
    for (size_t k = 0; k < x.size() && k < y.size(); ++k) {
      if (x[k] != y[k]) std::abort();
    }
  }
  return 0;
}
