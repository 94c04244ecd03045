#include "debuginfo/payload.h"

#include <string>
#include <utility>

#include "absl/status/status.h"
#include "absl/strings/str_cat.h"
#include "debuginfo/codecs.h"
#include "serialize/containers.h"
#include "serialize/decoder.h"
#include "serialize/encoder.h"
#include "serialize/mem_reader.h"
#include "serialize/mem_writer.h"
#include "zelk_elf/debug_info.h"

namespace zelk_elf {
namespace debuginfo {
namespace {

using tolva_lib::io::MemReader;

// Where a refused payload stopped, from the marks the decoders left.
std::string refusal(const MemReader& reader) {
  if (reader.size() == 0) return "payload is empty";
  const char* what = "ends inside a value";
  switch (reader.failedUnit()) {
    case MemReader::Unit::kElement: what = "ends inside an element"; break;
    case MemReader::Unit::kEntry: what = "ends inside an entry"; break;
    case MemReader::Unit::kCount: what = "cannot hold what the count claims"; break;
    case MemReader::Unit::kCrowdedKey:
      return absl::StrCat("payload of ", reader.size(), " bytes has more than ",
                          tolva_lib::serialize::kMaxKeysPerBucket,
                          " map keys in one hash bucket (keys built to collide) at offset ",
                          reader.failedAt());
    case MemReader::Unit::kValue: break;
  }
  return absl::StrCat("payload of ", reader.size(), " bytes ", what,
                      " at offset ", reader.failedAt());
}

}  // namespace

template <typename T>
absl::StatusOr<T> decodePayload(tolva_lib::io::ByteView payload) {
  MemReader reader(payload);
  tolva_lib::serialize::binary::Decoder<MemReader> decoder(reader);
  auto result = tolva_lib::serialize::Decodable<T>::decode(decoder);
  if (result.isErr()) return absl::InvalidArgumentError(refusal(reader));
  return std::move(result).getOk();
}

template <typename T>
std::vector<uint8_t> encodePayload(const T& value) {
  std::vector<uint8_t> payload;
  payload.reserve(64);  // small payloads grow no further
  tolva_lib::io::MemWriter writer(payload);
  tolva_lib::serialize::binary::Encoder<tolva_lib::io::MemWriter> encoder(writer);
  tolva_lib::serialize::put(value, encoder);
  return payload;
}

#define ZELK_PAYLOAD_TYPE(T)                                               \
  template absl::StatusOr<T> decodePayload<T>(tolva_lib::io::ByteView); \
  template std::vector<uint8_t> encodePayload<T>(const T&);
ZELK_PAYLOAD_TYPE(DebugInfoID)
ZELK_PAYLOAD_TYPE(SpillInfo)
ZELK_PAYLOAD_TYPE(SWPInfo)
ZELK_PAYLOAD_TYPE(ControlFlowGraph)
ZELK_PAYLOAD_TYPE(SourceMap)
ZELK_PAYLOAD_TYPE(SymbolMap)
ZELK_PAYLOAD_TYPE(uint32_t)
ZELK_PAYLOAD_TYPE(std::string)
ZELK_PAYLOAD_TYPE(LatencyInfo)
#undef ZELK_PAYLOAD_TYPE

}  // namespace debuginfo
}  // namespace zelk_elf
