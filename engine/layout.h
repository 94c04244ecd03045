// Save layout: file offsets of segments and sections, segment sizes and the
// header's table fields, assigned in place.
#ifndef ZELK_ELF_ENGINE_LAYOUT_H_
#define ZELK_ELF_ENGINE_LAYOUT_H_

#include <cstddef>
#include <vector>

#include "absl/container/inlined_vector.h"
#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "engine/image.h"

namespace zelk_elf {
namespace engine {

// Lays `image` out and returns the size of the file it makes. Refuses a
// member that would go below its segment's start or over what precedes it,
// and anything past kMaxImageSize; values assigned before a refusal stay.
absl::StatusOr<uint64_t> layOut(Image& image);

// The order in which the layout places segments, as indexes: segments whose
// offset is set and 0 first (they cover the headers), and every segment
// only after each segment that contains it. A segment contains another when
// it lists more sections, including all of the other's in list order.
using SegmentOrder = absl::InlinedVector<size_t, 16>;
absl::StatusOr<SegmentOrder> segmentOrder(const Image& image);

}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_ENGINE_LAYOUT_H_
