// The ELF header records as plain host-order values, the constants the
// library uses, and their conversion to and from the on-disk form of each
// class and byte order.
#ifndef ZELK_ELF_ENGINE_RECORDS_H_
#define ZELK_ELF_ENGINE_RECORDS_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "serialize/byte_view.h"

namespace zelk_elf {
namespace engine {

using tolva_lib::io::ByteView;

// Identification.
constexpr uint8_t kClass32 = 1;
constexpr uint8_t kClass64 = 2;
constexpr uint8_t kDataLsb = 1;
constexpr uint8_t kDataMsb = 2;

// File types, section types and flags, segment types and flags.
constexpr uint16_t kEtRel = 1;
constexpr uint16_t kEtExec = 2;
constexpr uint32_t kShtNull = 0;
constexpr uint32_t kShtProgbits = 1;
constexpr uint32_t kShtStrtab = 3;
constexpr uint32_t kShtNobits = 8;
constexpr uint64_t kShfWrite = 0x1;
constexpr uint64_t kShfAlloc = 0x2;
constexpr uint64_t kShfExecInstr = 0x4;
constexpr uint64_t kShfMerge = 0x10;
constexpr uint64_t kShfStrings = 0x20;
constexpr uint64_t kShfTls = 0x400;
constexpr uint32_t kPtNull = 0;
constexpr uint32_t kPtLoad = 1;
constexpr uint32_t kPtPhdr = 6;
constexpr uint32_t kPtTls = 7;
constexpr uint32_t kPfX = 1;
constexpr uint32_t kPfW = 2;
constexpr uint32_t kPfR = 4;

// Address-sized fields are 64-bit here; a 32-bit image keeps their low 32
// bits on disk.
struct FileHeader {
  std::array<uint8_t, 16> ident{};
  uint16_t type = 0;
  uint16_t machine = 0;
  uint32_t version = 0;
  uint64_t entry = 0;
  uint64_t phoff = 0;
  uint64_t shoff = 0;
  uint32_t flags = 0;
  uint16_t ehsize = 0;
  uint16_t phentsize = 0;
  uint16_t phnum = 0;
  uint16_t shentsize = 0;
  uint16_t shnum = 0;
  uint16_t shstrndx = 0;
};

struct SectionHeader {
  uint32_t name = 0;
  uint32_t type = 0;
  uint64_t flags = 0;
  uint64_t addr = 0;
  uint64_t offset = 0;
  uint64_t size = 0;
  uint32_t link = 0;
  uint32_t info = 0;
  uint64_t addralign = 0;
  uint64_t entsize = 0;
};

struct SegmentHeader {
  uint32_t type = 0;
  uint32_t flags = 0;
  uint64_t offset = 0;
  uint64_t vaddr = 0;
  uint64_t paddr = 0;
  uint64_t filesz = 0;
  uint64_t memsz = 0;
  uint64_t align = 0;
};

// Each record's fields in their on-disk order, as v.half, v.word or v.addr
// (name, field): one list serves decoding, encoding and every listing of
// the fields by name. H is the record or a const record. The file header's
// fields follow its 16 identification bytes.
template <typename H, typename V>
void visitFileHeader(H& h, V& v) {
  v.half("type", h.type);
  v.half("machine", h.machine);
  v.word("version", h.version);
  v.addr("entry", h.entry);
  v.addr("phoff", h.phoff);
  v.addr("shoff", h.shoff);
  v.word("flags", h.flags);
  v.half("ehsize", h.ehsize);
  v.half("phentsize", h.phentsize);
  v.half("phnum", h.phnum);
  v.half("shentsize", h.shentsize);
  v.half("shnum", h.shnum);
  v.half("shstrndx", h.shstrndx);
}

template <typename H, typename V>
void visitSectionHeader(H& h, V& v) {
  v.word("name_offset", h.name);  // in the section-name table
  v.word("type", h.type);
  v.addr("flags", h.flags);
  v.addr("addr", h.addr);
  v.addr("offset", h.offset);
  v.addr("size", h.size);
  v.word("link", h.link);
  v.word("info", h.info);
  v.addr("addralign", h.addralign);
  v.addr("entsize", h.entsize);
}

// The 64-bit class moves p_flags up to keep the 8-byte fields aligned.
template <bool kWide, typename H, typename V>
void visitSegmentHeader(H& h, V& v) {
  v.word("type", h.type);
  if constexpr (kWide) v.word("flags", h.flags);
  v.addr("offset", h.offset);
  v.addr("vaddr", h.vaddr);
  v.addr("paddr", h.paddr);
  v.addr("filesz", h.filesz);
  v.addr("memsz", h.memsz);
  if constexpr (!kWide) v.word("flags", h.flags);
  v.addr("align", h.align);
}

// The record sizes of one class and the conversions of one class and byte
// order. Decoders take a view of exactly the record's size; encoders write
// exactly that many bytes.
struct RecordFormat {
  size_t file_header_size;
  size_t section_header_size;
  size_t segment_header_size;
  void (*decodeFileHeader)(ByteView bytes, FileHeader* h);
  void (*encodeFileHeader)(const FileHeader& h, uint8_t* out);
  void (*decodeSectionHeader)(ByteView bytes, SectionHeader* h);
  void (*encodeSectionHeader)(const SectionHeader& h, uint8_t* out);
  void (*decodeSegmentHeader)(ByteView bytes, SegmentHeader* h);
  void (*encodeSegmentHeader)(const SegmentHeader& h, uint8_t* out);
};

// The bytes a table of `count` records takes with entries `entry_size`
// apart: the last record ends the table, whatever the entry size.
constexpr uint64_t tableBytes(uint64_t count, uint64_t entry_size, uint64_t record_size) {
  return count == 0 ? 0 : entry_size * (count - 1) + record_size;
}

// The format of ELFCLASS32/64 with ELFDATA2LSB/MSB; any class other than
// kClass64 reads as 32-bit and any encoding other than kDataMsb as LSB.
const RecordFormat& recordFormat(uint8_t elf_class, uint8_t encoding);

}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_ENGINE_RECORDS_H_
