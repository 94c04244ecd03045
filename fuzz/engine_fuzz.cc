// Load, save, load again: the engine must not crash on any input, and an
// image it saved must load back with its sections' names and bytes.
#include <cstdint>
#include <sstream>
#include <string>

#include "engine/image.h"
#include "fuzz_checks.h"

using zelk_elf::engine::Image;
using zelk_fuzz::check;

namespace {

bool overlaps(uint64_t off, uint64_t size, uint64_t lo, uint64_t len) {
  return len != 0 && size != 0 && off < lo + len && lo < off + size;
}

// A section placed over the file header or a header table shares its bytes.
bool overlapsHeaders(const Image& image, uint64_t off, uint64_t size) {
  const auto& h = image.header();
  return overlaps(off, size, 0, h.ehsize) ||
         overlaps(off, size, h.phoff, uint64_t{h.phentsize} * h.phnum) ||
         overlaps(off, size, h.shoff, uint64_t{h.shentsize} * h.shnum);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Image image;
  if (!image.load({data, size}).ok() || !zelk_fuzz::fitsTheBound(image)) return 0;
  std::ostringstream out;
  check(image.save(out).ok(), "an image within the bound saves");
  const std::string saved = out.str();
  Image again;
  if (!again.load({reinterpret_cast<const uint8_t*>(saved.data()), saved.size()}).ok()) {
    check(zelk_fuzz::segmentPastEnd(image, saved.size()), "a saved image loads again");
    return 0;
  }
  check(again.sections().size() == image.sections().size(), "the section count is kept");
  for (size_t i = 0; i < image.sections().size(); ++i) {
    const auto& a = image.sections()[i];
    const auto& b = again.sections()[i];
    // A name that did not resolve may resolve after the save: a string table
    // cut short at load is written out padded with zeros.
    check(a.name.empty() || a.name.find('\0') != absl::string_view::npos || a.name == b.name,
          "names are kept");
    // The null entry's bytes are never written, whatever type it claims.
    if (i == 0 || overlapsHeaders(again, b.header.offset, a.bytes().size())) continue;
    // Bytes come back whole; a section cut short at load gains zeros.
    const auto x = a.bytes(), y = b.bytes();
    check(y.size() >= x.size() || a.header.size < x.size(), "bytes are kept whole");
    check(std::equal(x.begin(), x.begin() + std::min(x.size(), y.size()), y.begin()),
          "bytes are kept");
  }
  return 0;
}
