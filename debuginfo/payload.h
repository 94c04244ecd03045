// Whole payloads of the ".zelk.dbg." sections: a value decoded from exactly
// a section's bytes, or encoded into them. Nothing here knows of sections,
// images or the ELF class; the caller says which section a payload is.
#ifndef ZELK_ELF_DEBUGINFO_PAYLOAD_H_
#define ZELK_ELF_DEBUGINFO_PAYLOAD_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "debuginfo/codecs.h"
#include "serialize/byte_view.h"
#include "serialize/decoder.h"
#include "serialize/encoder.h"
#include "serialize/mem_reader.h"
#include "serialize/mem_writer.h"

namespace zelk_elf {
namespace debuginfo {

// Where a refused payload stopped, from the marks the decoders left:
// "payload of 6 bytes ends inside an element at offset 4".
std::string refusal(const tolva_lib::io::MemReader& reader);

// Decodes one value of type T, the type of a debug field, from `payload` by
// its wire layout, leaving any bytes after the value unread.
template <typename T>
absl::StatusOr<T> decodePayload(tolva_lib::io::ByteView payload) {
  tolva_lib::io::MemReader reader(payload);
  tolva_lib::serialize::binary::Decoder<tolva_lib::io::MemReader> decoder(reader);
  auto result = tolva_lib::serialize::Decodable<T>::decode(decoder);
  if (result.isErr()) return absl::InvalidArgumentError(refusal(reader));
  return std::move(result).getOk();
}

// The payload that stores `value`. Encoding into memory cannot fail.
template <typename T>
std::vector<uint8_t> encodePayload(const T& value) {
  std::vector<uint8_t> payload;
  payload.reserve(64);  // small payloads grow no further
  tolva_lib::io::MemWriter writer(payload);
  tolva_lib::serialize::binary::Encoder<tolva_lib::io::MemWriter> encoder(writer);
  tolva_lib::serialize::put(value, encoder);
  return payload;
}

}  // namespace debuginfo
}  // namespace zelk_elf

#endif  // ZELK_ELF_DEBUGINFO_PAYLOAD_H_
