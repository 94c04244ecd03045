// The payload of each ".zelk.dbg." section, by its position in the load and
// save order. Shared by the load step and by the diagnostic decoder so that
// both read exactly the same way.
#ifndef ZELK_ELF_DEBUGINFO_PAYLOADS_H_
#define ZELK_ELF_DEBUGINFO_PAYLOADS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "debuginfo/codecs.h"
#include "serialize/containers.h"
#include "serialize/traits.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace debuginfo_internal {

// Positions in kDebugSectionNames.
enum DebugSectionIndex : size_t {
  kId,
  kSpill,
  kSwp,
  kCfg,
  kSrc,
  kSym,
  kPmSize,
  kVerifyInfo,
  kLatency,
  kDebugSectionCount
};

template <typename T, typename D, typename Sink>
bool decodeInto(D& d, Sink& sink) {
  auto r = tolva_lib::serialize::Decodable<T>::decode(d);
  if (r.isErr()) return false;
  sink(std::move(r).getOk());
  return true;
}

// Decodes the payload of section `which` and hands the value to `sink`,
// which takes each value type by rvalue. Bytes after the value are left
// unread. False when the payload is refused.
template <typename D, typename Sink>
bool decodeDebugPayload(size_t which, D& d, Sink&& sink) {
  switch (which) {
    case kId: return decodeInto<DebugInfoID>(d, sink);
    case kSpill: return decodeInto<SpillInfo>(d, sink);
    case kSwp: return decodeInto<SWPInfo>(d, sink);
    case kCfg: return decodeInto<ControlFlowGraph>(d, sink);
    case kSrc: return decodeInto<SourceMap>(d, sink);
    case kSym: return decodeInto<SymbolMap>(d, sink);
    case kPmSize: return decodeInto<uint32_t>(d, sink);
    case kVerifyInfo: return decodeInto<std::string>(d, sink);
    case kLatency: return decodeInto<LatencyInfo>(d, sink);
    default: return false;
  }
}

}  // namespace debuginfo_internal
}  // namespace zelk_elf

#endif  // ZELK_ELF_DEBUGINFO_PAYLOADS_H_
