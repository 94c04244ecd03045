// Writing a laid-out image: the file header, then per section its header
// entry and its bytes, then the program headers. Each piece is placed by
// padding the stream with zeros up to its offset and seeking there, so any
// seekable ostream works, including a plain string stream.
#include <algorithm>
#include <array>
#include <vector>

#include "engine/image_state.h"
#include "engine/records.h"

namespace zelk_elf {
namespace engine {
namespace {

bool placeAt(std::ostream& out, uint64_t target) {
  static const std::array<char, 4096> kZeros{};
  out.seekp(0, std::ios_base::end);
  const std::streamoff end = out.tellp();
  if (!out || end < 0) return false;
  for (uint64_t gap = target > static_cast<uint64_t>(end) ? target - end : 0;
       gap != 0;) {
    const size_t chunk = static_cast<size_t>(std::min<uint64_t>(gap, kZeros.size()));
    if (!out.write(kZeros.data(), static_cast<std::streamsize>(chunk))) {
      return false;
    }
    gap -= chunk;
  }
  out.seekp(static_cast<std::streamoff>(target));
  return out.good();
}

bool put(std::ostream& out, const uint8_t* bytes, size_t size) {
  return static_cast<bool>(out.write(reinterpret_cast<const char*>(bytes),
                                     static_cast<std::streamsize>(size)));
}

}  // namespace

bool ImageInternals::write(const ImageState& image, std::ostream& out) {
  const FileHeader& h = image.header;
  const Codec codec = image.codec();
  std::vector<uint8_t> record(codec.headerSize());
  encodeFileHeader(codec, h, record.data());
  out.seekp(0);
  if (!out || !put(out, record.data(), record.size())) return false;

  record.assign(codec.sectionHeaderSize(), 0);
  for (const auto& section : image.sections) {
    const SectionState& s = ImageInternals::of(*section);
    encodeSectionHeader(codec, s.header, record.data());
    if (!placeAt(out, h.shoff + uint64_t{h.shentsize} * s.index) ||
        !put(out, record.data(), record.size())) {
      return false;
    }
    // Index 0 is the null entry whatever it claims; a section holding fewer
    // bytes than it records leaves the rest of its space zero.
    const SectionHeader& sh = s.header;
    const size_t bytes = static_cast<size_t>(std::min<uint64_t>(s.held, sh.size));
    if (s.index == 0 || sh.type == kShtNull || sh.type == kShtNobits ||
        bytes == 0) {
      continue;
    }
    if (!placeAt(out, sh.offset) || !put(out, s.data(), bytes)) return false;
  }

  record.assign(codec.segmentHeaderSize(), 0);
  for (const auto& segment : image.segments) {
    const SegmentState& g = ImageInternals::of(*segment);
    encodeSegmentHeader(codec, g.header, record.data());
    if (!placeAt(out, h.phoff + uint64_t{h.phentsize} * g.index) ||
        !put(out, record.data(), record.size())) {
      return false;
    }
  }
  // The file ends with the last byte written: with entry sizes larger than
  // the records, the last entry's tail is not part of it.
  return out.good();
}

}  // namespace engine
}  // namespace zelk_elf
