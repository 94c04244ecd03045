#include "debuginfo/debug_sections.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "debuginfo/codecs.h"
#include "debuginfo/payloads.h"
#include "serialize/decoder.h"
#include "serialize/encoder.h"
#include "serialize/mem_reader.h"
#include "serialize/mem_writer.h"

namespace zelk_elf {
namespace {

using tolva_lib::io::MemReader;
using tolva_lib::io::MemWriter;
using tolva_lib::serialize::Encodable;
using tolva_lib::serialize::binary::Decoder;
using tolva_lib::serialize::binary::Encoder;
using MemEncoder = Encoder<MemWriter>;

static_assert(debuginfo_internal::kDebugSectionCount ==
                  sizeof(kDebugSectionNames) / sizeof(kDebugSectionNames[0]),
              "one payload kind per debug section");

// Stores each decoded value in its field; every payload type is distinct.
struct FieldSink {
  ELF& elf;
  void operator()(DebugInfoID&& v) { elf.dbgID = std::move(v); }
  void operator()(SpillInfo&& v) { elf.spillInfo = std::move(v); }
  void operator()(SWPInfo&& v) { elf.swpInfo = std::move(v); }
  void operator()(ControlFlowGraph&& v) { elf.cfgInfo = std::move(v); }
  void operator()(SourceMap&& v) { elf.srcInfo = std::move(v); }
  void operator()(SymbolMap&& v) { elf.symInfo = std::move(v); }
  void operator()(uint32_t&& v) { elf.pmSize = v; }
  void operator()(std::string&& v) { elf.setVerifyInfo(std::move(v)); }
  void operator()(LatencyInfo&& v) { elf.latencyInfo = std::move(v); }
};

// Encodes `value` into a fresh payload and stores it as the section `name`,
// creating the section when the image has none. Nothing is touched when the
// encode fails.
template <typename T>
bool writeSection(const char* name, const T& value, engine::Image& image) {
  std::vector<uint8_t> payload;
  MemWriter writer(payload);
  MemEncoder encoder(writer);
  if (Encodable<T>::encode(value, encoder).isErr()) return false;
  engine::Section* section = image.findSection(name);
  if (section == nullptr) section = &image.addSection(name);
  section->setType(engine::kShtProgbits);
  section->setData(payload.data(), payload.size());
  section->setAddrAlign(1);
  // The engine empties a section whose copy could not be allocated; saving
  // on would hand out an image whose debug section no longer decodes.
  return section->dataSize() == payload.size();
}

template <typename T>
bool writeIfPresent(size_t which, const absl::optional<T>& field,
                    engine::Image& image) {
  return !field.has_value() ||
         writeSection(kDebugSectionNames[which], *field, image);
}

}  // namespace

bool readDebugSections(const engine::Image& image, ELF& elf) {
  for (size_t i = 0; i < debuginfo_internal::kDebugSectionCount; ++i) {
    const engine::Section* section = image.findSection(kDebugSectionNames[i]);
    if (section == nullptr) continue;
    MemReader reader(section->data(), section->dataSize());
    Decoder<MemReader> decoder(reader);
    if (!debuginfo_internal::decodeDebugPayload(i, decoder, FieldSink{elf})) {
      return false;
    }
  }
  return true;
}

bool writeDebugSections(const ELF& elf, engine::Image& image) {
  using namespace debuginfo_internal;
  return writeIfPresent(kId, elf.dbgID, image) &&
         writeIfPresent(kSpill, elf.spillInfo, image) &&
         writeIfPresent(kSwp, elf.swpInfo, image) &&
         writeIfPresent(kCfg, elf.cfgInfo, image) &&
         writeIfPresent(kSrc, elf.srcInfo, image) &&
         writeIfPresent(kSym, elf.symInfo, image) &&
         writeIfPresent(kPmSize, elf.pmSize, image) &&
         writeIfPresent(kVerifyInfo, elf.verifyInfo, image) &&
         writeIfPresent(kLatency, elf.latencyInfo, image);
}

}  // namespace zelk_elf
