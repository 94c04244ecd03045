// Whole payloads of the ".zelk.dbg." sections: a value decoded from exactly
// a section's bytes, or encoded into them. Nothing here knows of sections,
// images or the ELF class; the caller says which section a payload is.
#ifndef ZELK_ELF_DEBUGINFO_PAYLOAD_H_
#define ZELK_ELF_DEBUGINFO_PAYLOAD_H_

#include <cstdint>
#include <vector>

#include "absl/status/statusor.h"
#include "serialize/byte_view.h"

namespace zelk_elf {
namespace debuginfo {

// Decodes one value of type T from `payload` by its wire layout, leaving any
// bytes after the value unread. A refusal says where decoding stopped, e.g.
// "payload of 6 bytes ends inside an element at offset 4".
//
// T is one of the nine payload types: DebugInfoID, SpillInfo, SWPInfo,
// ControlFlowGraph, SourceMap, SymbolMap, uint32_t (the PM size),
// std::string (the verify-info text) and LatencyInfo.
template <typename T>
absl::StatusOr<T> decodePayload(tolva_lib::io::ByteView payload);

// The payload that stores `value`. Encoding into memory cannot fail.
template <typename T>
std::vector<uint8_t> encodePayload(const T& value);

}  // namespace debuginfo
}  // namespace zelk_elf

#endif  // ZELK_ELF_DEBUGINFO_PAYLOAD_H_
