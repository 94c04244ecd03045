// One debug payload, its kind picked by the first byte: what decodes encodes to
// bytes that decode equal and, but for maps, to the very bytes read.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "debuginfo/payload.h"
#include "zelk_elf/debug_info.h"

namespace {

using namespace zelk_elf;

void check(bool ok) {
  if (!ok) std::abort();
}

// `exact`: maps promise an equal map only (entry order, dropped repeated keys).
template <typename T, bool exact>
void roundTrip(const uint8_t* data, size_t size) {
  const absl::StatusOr<T> first = debuginfo::decodePayload<T>({data, size});
  if (!first.ok()) return;
  const std::vector<uint8_t> bytes = debuginfo::encodePayload(*first);
  if (exact) check(bytes.size() <= size && std::equal(bytes.begin(), bytes.end(), data));
  const absl::StatusOr<T> second = debuginfo::decodePayload<T>({bytes.data(), bytes.size()});
  check(second.ok() && *second == *first);
}

constexpr void (*kKinds[])(const uint8_t*, size_t) = {
    roundTrip<DebugInfoID, true>,      roundTrip<SpillInfo, true>,   roundTrip<SWPInfo, true>,
    roundTrip<ControlFlowGraph, true>, roundTrip<SourceMap, false>,  roundTrip<SymbolMap, false>,
    roundTrip<uint32_t, true>,         roundTrip<std::string, true>, roundTrip<LatencyInfo, true>};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size != 0) kKinds[data[0] % 9](data + 1, size - 1);
  return 0;
}
