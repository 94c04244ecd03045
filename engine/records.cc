#include "engine/records.h"

#include <algorithm>

namespace zelk_elf {
namespace engine {
namespace {

// Walks a record field by field; A is the address width of the class.
class Reader {
 public:
  Reader(const Codec& c, const uint8_t* p) : c_(c), p_(p) {}
  uint64_t take(size_t width) {
    uint64_t v = c_.read(p_, width);
    p_ += width;
    return v;
  }
  uint64_t addr() { return take(c_.addrWidth()); }
  uint32_t u32() { return static_cast<uint32_t>(take(4)); }
  uint16_t u16() { return static_cast<uint16_t>(take(2)); }

 private:
  const Codec& c_;
  const uint8_t* p_;
};

class Writer {
 public:
  Writer(const Codec& c, uint8_t* p) : c_(c), p_(p) {}
  void put(size_t width, uint64_t v) {
    c_.write(p_, width, v);
    p_ += width;
  }
  void addr(uint64_t v) { put(c_.addrWidth(), v); }
  void u32(uint32_t v) { put(4, v); }
  void u16(uint16_t v) { put(2, v); }

 private:
  const Codec& c_;
  uint8_t* p_;
};

}  // namespace

FileHeader decodeFileHeader(const Codec& codec, const uint8_t* p) {
  FileHeader h;
  std::copy(p, p + 16, h.ident.begin());
  Reader r(codec, p + 16);
  h.type = r.u16();
  h.machine = r.u16();
  h.version = r.u32();
  h.entry = r.addr();
  h.phoff = r.addr();
  h.shoff = r.addr();
  h.flags = r.u32();
  h.ehsize = r.u16();
  h.phentsize = r.u16();
  h.phnum = r.u16();
  h.shentsize = r.u16();
  h.shnum = r.u16();
  h.shstrndx = r.u16();
  return h;
}

void encodeFileHeader(const Codec& codec, const FileHeader& h, uint8_t* p) {
  std::copy(h.ident.begin(), h.ident.end(), p);
  Writer w(codec, p + 16);
  w.u16(h.type);
  w.u16(h.machine);
  w.u32(h.version);
  w.addr(h.entry);
  w.addr(h.phoff);
  w.addr(h.shoff);
  w.u32(h.flags);
  w.u16(h.ehsize);
  w.u16(h.phentsize);
  w.u16(h.phnum);
  w.u16(h.shentsize);
  w.u16(h.shnum);
  w.u16(h.shstrndx);
}

SectionHeader decodeSectionHeader(const Codec& codec, const uint8_t* p) {
  SectionHeader h;
  Reader r(codec, p);
  h.name = r.u32();
  h.type = r.u32();
  h.flags = r.addr();
  h.addr = r.addr();
  h.offset = r.addr();
  h.size = r.addr();
  h.link = r.u32();
  h.info = r.u32();
  h.addralign = r.addr();
  h.entsize = r.addr();
  return h;
}

void encodeSectionHeader(const Codec& codec, const SectionHeader& h,
                         uint8_t* p) {
  Writer w(codec, p);
  w.u32(h.name);
  w.u32(h.type);
  w.addr(h.flags);
  w.addr(h.addr);
  w.addr(h.offset);
  w.addr(h.size);
  w.u32(h.link);
  w.u32(h.info);
  w.addr(h.addralign);
  w.addr(h.entsize);
}

// The two classes order the program header differently: the 64-bit one
// moves p_flags up to keep the 8-byte fields aligned.
SegmentHeader decodeSegmentHeader(const Codec& codec, const uint8_t* p) {
  SegmentHeader h;
  Reader r(codec, p);
  h.type = r.u32();
  if (codec.wide()) h.flags = r.u32();
  h.offset = r.addr();
  h.vaddr = r.addr();
  h.paddr = r.addr();
  h.filesz = r.addr();
  h.memsz = r.addr();
  if (!codec.wide()) h.flags = r.u32();
  h.align = r.addr();
  return h;
}

void encodeSegmentHeader(const Codec& codec, const SegmentHeader& h,
                         uint8_t* p) {
  Writer w(codec, p);
  w.u32(h.type);
  if (codec.wide()) w.u32(h.flags);
  w.addr(h.offset);
  w.addr(h.vaddr);
  w.addr(h.paddr);
  w.addr(h.filesz);
  w.addr(h.memsz);
  if (!codec.wide()) w.u32(h.flags);
  w.addr(h.align);
}

}  // namespace engine
}  // namespace zelk_elf
