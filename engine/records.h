// Conversion between the header records of image.h and their on-disk form.
// Callers guarantee that the buffer holds the record size of the codec's
// class (Codec::headerSize() and friends).
#ifndef ZELK_ELF_ENGINE_RECORDS_H_
#define ZELK_ELF_ENGINE_RECORDS_H_

#include <cstdint>

#include "engine/byte_order.h"
#include "engine/image.h"

namespace zelk_elf {
namespace engine {

FileHeader decodeFileHeader(const Codec& codec, const uint8_t* p);
void encodeFileHeader(const Codec& codec, const FileHeader& h, uint8_t* p);

SectionHeader decodeSectionHeader(const Codec& codec, const uint8_t* p);
void encodeSectionHeader(const Codec& codec, const SectionHeader& h,
                         uint8_t* p);

SegmentHeader decodeSegmentHeader(const Codec& codec, const uint8_t* p);
void encodeSegmentHeader(const Codec& codec, const SegmentHeader& h,
                         uint8_t* p);

}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_ENGINE_RECORDS_H_
