// Decodes one debug payload; whatever decodes must re-encode to bytes that
// decode to an equal value. Built once per payload kind (ZELK_CODEC_KIND is
// the position in the section order); without it, the first byte picks the
// kind.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "debuginfo/codecs.h"
#include "serialize/containers.h"
#include "serialize/decoder.h"
#include "serialize/encoder.h"
#include "serialize/mem_reader.h"
#include "serialize/mem_writer.h"
#include "zelk_elf/elf.h"

namespace {

using tolva_lib::io::MemReader;
using tolva_lib::io::MemWriter;
using tolva_lib::serialize::Decodable;
using tolva_lib::serialize::Encodable;
using Dec = tolva_lib::serialize::binary::Decoder<MemReader>;
using Enc = tolva_lib::serialize::binary::Encoder<MemWriter>;

void check(bool ok) {
  if (!ok) std::abort();
}

// `exact`: the encoding must reproduce the bytes that were consumed. Maps
// cannot promise that (entry order, dropped repeated keys); they must still
// decode to an equal map.
template <typename T>
void roundTrip(const uint8_t* data, size_t size, bool exact) {
  MemReader reader(data, size);
  Dec decoder(reader);
  auto first = Decodable<T>::decode(decoder);
  if (first.isErr()) {
    check(reader.remaining() == 0);  // a failed decode abandons the input
    return;
  }
  const size_t consumed = size - reader.remaining();

  std::vector<uint8_t> bytes;
  MemWriter writer(bytes);
  Enc encoder(writer);
  check(Encodable<T>::encode(first.getOk(), encoder).isOk());
  if (exact) {
    check(bytes.size() == consumed);
    check(consumed == 0 || std::memcmp(bytes.data(), data, consumed) == 0);
  }

  MemReader again_reader(bytes.data(), bytes.size());
  Dec again_decoder(again_reader);
  auto second = Decodable<T>::decode(again_decoder);
  check(second.isOk());
  check(again_reader.remaining() == 0);
  check(second.getOk() == first.getOk());
}

void fuzzKind(int kind, const uint8_t* data, size_t size) {
  switch (kind) {
    case 0: return roundTrip<zelk_elf::DebugInfoID>(data, size, true);
    case 1: return roundTrip<zelk_elf::SpillInfo>(data, size, true);
    case 2: return roundTrip<zelk_elf::SWPInfo>(data, size, true);
    case 3: return roundTrip<zelk_elf::ControlFlowGraph>(data, size, true);
    case 4: return roundTrip<zelk_elf::SourceMap>(data, size, false);
    case 5: return roundTrip<zelk_elf::SymbolMap>(data, size, false);
    case 6: return roundTrip<uint32_t>(data, size, true);
    case 7: return roundTrip<std::string>(data, size, true);
    case 8: return roundTrip<zelk_elf::LatencyInfo>(data, size, true);
    default: return;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
#if defined(ZELK_CODEC_KIND)
  fuzzKind(ZELK_CODEC_KIND, data, size);
#else
  if (size == 0) return 0;
  fuzzKind(data[0] % 9, data + 1, size - 1);
#endif
  return 0;
}
