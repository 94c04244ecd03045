// The private state behind Image, Section and Segment, shared by the files
// that read, lay out and write images. Not part of the engine's interface.
#ifndef ZELK_ELF_ENGINE_IMAGE_STATE_H_
#define ZELK_ELF_ENGINE_IMAGE_STATE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "absl/types/span.h"
#include "engine/byte_order.h"
#include "engine/image.h"

namespace zelk_elf {
namespace engine {

// Loaded sections view one shared, immutable copy of the input until their
// bytes are replaced, so overlapping headers cannot multiply memory.
using SharedInput = std::shared_ptr<const std::vector<uint8_t>>;

struct Section::State {
  size_t index = 0;
  bool wide = false;  // class of the owning image: 64-bit fields or 32-bit
  SectionHeader header;
  std::string name;
  // Set by load, setAddress and layout; a member of a segment whose address
  // is set is placed at the file position matching that address.
  bool addr_init = false;

  // Held bytes: `held` of them, either inside `input` at `input_offset` or,
  // when `input` is null, in `own`.
  SharedInput input;
  size_t input_offset = 0;
  std::vector<uint8_t> own;
  size_t held = 0;

  const uint8_t* data() const {
    if (held == 0) return nullptr;
    return input ? input->data() + input_offset : own.data();
  }
  uint64_t fit(uint64_t v) const { return wide ? v : (v & 0xFFFFFFFFu); }
  // Moves viewed bytes into `own` so they can be changed.
  void takeOwnership();
};

struct Segment::State {
  size_t index = 0;
  bool wide = false;
  SegmentHeader header;
  std::vector<uint16_t> sections;
  // Set by load and by every layout; an initialized segment at offset 0
  // covers the file and program headers.
  bool off_init = false;

  uint64_t fit(uint64_t v) const { return wide ? v : (v & 0xFFFFFFFFu); }
};

struct Image::State {
  FileHeader header;
  std::vector<std::unique_ptr<Section>> sections;
  std::vector<std::unique_ptr<Segment>> segments;

  bool wide() const { return header.ident[4] == kClass64; }
  Codec codec() const { return Codec(header.ident[5] == kDataMsb, wide()); }
};

// Grants the reader, the layout and the writer access to the private state.
struct ImageInternals {
  // Public names for the private state types, for the engine's own files.
  using ImageState = Image::State;
  using SectionState = Section::State;
  using SegmentState = Segment::State;

  static Image::State& of(Image& image) { return *image.state_; }
  static Section::State& of(Section& s) { return *s.state_; }
  static const Section::State& of(const Section& s) { return *s.state_; }
  static Segment::State& of(Segment& s) { return *s.state_; }
  static const Segment::State& of(const Segment& s) { return *s.state_; }

  static std::unique_ptr<Section> makeSection(size_t index, bool wide);
  static std::unique_ptr<Segment> makeSegment(size_t index, bool wide);

  // Parses `bytes` into `out` (a fresh state). False when the bytes are not
  // a loadable image; `out` is then to be discarded.
  static bool read(absl::Span<const uint8_t> bytes, Image::State& out);
  // Assigns file offsets, sizes and the header's table fields. False when
  // the image cannot be laid out; values assigned so far stay.
  static bool layout(Image::State& image);
  // Writes a laid-out image. False when the stream fails.
  static bool write(const Image::State& image, std::ostream& out);
};

using ImageState = ImageInternals::ImageState;
using SectionState = ImageInternals::SectionState;
using SegmentState = ImageInternals::SegmentState;

// The largest saved image, in both classes: the last offset a 32-bit image
// can express. Every layout below it is written; a layout that would pass it
// is refused, so a hostile alignment or size cannot wrap an offset around.
constexpr uint64_t kMaxFileOffset = 0xFFFFFFFFu;

}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_ENGINE_IMAGE_STATE_H_
