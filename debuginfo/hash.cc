#include "absl/hash/hash.h"
#include "zelk_elf/debug_info.h"

namespace zelk_elf {

// The fields in declaration order, each as its unsigned value, so that the
// result equals absl::Hash of the same sequence.
size_t DebugInfoID::hash() const { return absl::HashOf(kind, id0, id1); }

size_t BasicBlockRange::hash() const { return absl::HashOf(start, end); }

}  // namespace zelk_elf
