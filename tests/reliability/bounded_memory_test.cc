// Loading, every query and saving allocate in proportion to the input, also
// for hostile and large images. This binary counts every allocation.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "elf/internal.h"
#include "engine/records.h"
#include "gtest/gtest.h"
#include "reliability/alloc_hook.h"
#include "zelk_elf/elf.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace testing {
namespace {

using Bytes = std::vector<uint8_t>;

// Bytes each operation may allocate per byte of input, and a constant.
constexpr uint64_t kPerInputByte = 8;
constexpr uint64_t kConstant = uint64_t{1} << 20;
// Each line of ".comment" is a 16-byte view, whatever its length: the one
// cost the public data model puts beyond the input's proportion.
constexpr uint64_t kPerCommentLine = 16;

// A 32-bit image laid out by hand: the file header, the program headers,
// `body`, then the section header table. Section 0 is the null entry and
// section 1 the name table ("\0.s\0" followed by `names`).
struct RawImage {
  std::vector<engine::SectionHeader> sections;
  std::vector<engine::SegmentHeader> segments;
  Bytes body;

  uint64_t bodyAt() const { return 52 + 32 * segments.size(); }

  Bytes build() const {
    const engine::RecordFormat& f = engine::recordFormat(engine::kClass32, engine::kDataLsb);
    engine::FileHeader h;
    h.ident = {0x7F, 'E', 'L', 'F', engine::kClass32, engine::kDataLsb, 1};
    h.type = engine::kEtExec;
    h.version = 1;
    h.ehsize = 52;
    h.phentsize = 32;
    h.shentsize = 40;
    h.phnum = static_cast<uint16_t>(segments.size());
    h.phoff = segments.empty() ? 0 : 52;
    h.shnum = static_cast<uint16_t>(sections.size());
    h.shoff = bodyAt() + body.size();
    h.shstrndx = 1;
    Bytes out(h.shoff + 40 * sections.size());
    f.encodeFileHeader(h, out.data());
    for (size_t i = 0; i < segments.size(); ++i) {
      f.encodeSegmentHeader(segments[i], out.data() + 52 + 32 * i);
    }
    std::copy(body.begin(), body.end(), out.begin() + bodyAt());
    for (size_t i = 0; i < sections.size(); ++i) {
      f.encodeSectionHeader(sections[i], out.data() + h.shoff + 40 * i);
    }
    return out;
  }

  // The null entry and the name table, whose bytes start the body.
  static RawImage withNames(size_t segments, const std::string& names = "") {
    RawImage image;
    image.segments.resize(segments);
    const std::string table = std::string("\0.s\0", 4) + names;
    image.body.assign(table.begin(), table.end());
    image.sections.resize(2);
    image.sections[1] = {0, engine::kShtStrtab, 0, 0, image.bodyAt(), table.size(), 0, 0, 1, 0};
    return image;
  }

  // Appends a section named ".s" holding `data`.
  void addSection(uint32_t type, uint64_t flags, uint64_t addr, const Bytes& data) {
    sections.push_back({1, type, flags, addr, bodyAt() + body.size(), data.size(), 0, 0, 1, 0});
    body.insert(body.end(), data.begin(), data.end());
  }
};

// `count` loadable segments over `count` sections of 16 bytes at addresses
// 16, 32, ...; segment i spans the first i + 1 of them, or all of them.
Bytes segmentsOverSections(size_t count, bool nested) {
  RawImage image = RawImage::withNames(count);
  for (size_t k = 0; k < count; ++k) {
    image.addSection(engine::kShtNobits, engine::kShfAlloc, 16 * (k + 1), {});
    image.sections.back().size = 16;
  }
  for (size_t i = 0; i < count; ++i) {
    image.segments[i] = {engine::kPtLoad, engine::kPfR, 0, 16, 16, 0,
                         16 * (nested ? i + 1 : count), 0};
  }
  return image.build();
}

Bytes manySections() {
  RawImage image = RawImage::withNames(0);
  image.addSection(engine::kShtProgbits, 0, 0, Bytes(16, 7));
  while (image.sections.size() < 0xFFFF) image.sections.push_back(image.sections.back());
  return image.build();
}

// A debug section whose payload is `payload`.
Bytes debugPayload(const std::string& name, const Bytes& payload) {
  RawImage image = RawImage::withNames(0, name + std::string(1, '\0'));
  image.addSection(engine::kShtProgbits, 0, 0, payload);
  image.sections.back().name = 4;
  return image.build();
}

Bytes repeated(const Bytes& element, size_t count, const Bytes& prefix = {}) {
  Bytes out = prefix;
  out.reserve(prefix.size() + element.size() * count);
  for (size_t i = 0; i < count; ++i) out.insert(out.end(), element.begin(), element.end());
  return out;
}

Bytes le64(uint64_t v) {
  Bytes b(8);
  for (int i = 0; i < 8; ++i) b[i] = static_cast<uint8_t>(v >> (8 * i));
  return b;
}

// Every query of both faces, reading what it hands out.
void queryEverything(ELF& elf) {
  for (const std::string& name : elf.getSectionNames()) {
    elf.getSection(name);
    elf.getSectionSize(name);
  }
  zelkELFHandle h = reinterpret_cast<zelkELFHandle>(&elf);
  zelkELFDbgID id;
  zelkELFGetDbgID(h, &id);
  zelkELFFreeSpillInfo(zelkELFGetSpillInfo(h));
  zelkELFFreeSWPInfo(zelkELFGetSWPInfo(h));
  zelkELFFreeCFGInfo(zelkELFGetCFGInfo(h));
  const zelkELFSrcList names = zelkELFGetSrcNameList(h);
  for (size_t i = 0; i < names.count; ++i) zelkELFFreeSrcList(zelkELFGetSrcList(h, names.names[i]));
  zelkELFFreeSrcList(names);
  zelkELFGetPMSize(h);
  zelkELFGetVerifyInfo(h);
}

TEST(BoundedMemoryTest, LoadQueriesAndSaveStayInProportion) {
  struct Row {
    const char* image;
    Bytes bytes;
    size_t comment_lines;
  };
  const Row rows[] = {
      {"4096 nested segments", segmentsOverSections(4096, true), 0},
      {"4096 segments each over all 4096 sections", segmentsOverSections(4096, false), 0},
      {"65535 sections", manySections(), 0},
      {"4M SWP locations", debugPayload(".zelk.dbg.swp", Bytes(16 << 20, 1)), 0},
      {"1M spill locations with empty names",
       debugPayload(".zelk.dbg.spill", repeated(Bytes(14, 0), 1 << 20)), 0},
      {"256 sources of 4096 empty strings each",
       debugPayload(".zelk.dbg.src",
                    [] {
                      // Entries with distinct 1-byte keys are the densest map.
                      Bytes payload = le64(256);
                      for (int k = 0; k < 256; ++k) {
                        Bytes entry = le64(1);
                        entry.push_back(static_cast<uint8_t>(k));
                        Bytes strings = le64(4096);
                        const Bytes empty = le64(0);
                        for (int s = 0; s < 4096; ++s) {
                          strings.insert(strings.end(), empty.begin(), empty.end());
                        }
                        payload.insert(payload.end(), entry.begin(), entry.end());
                        payload.insert(payload.end(), strings.begin(), strings.end());
                      }
                      return payload;
                    }()),
       0},
      {"1M symbols", debugPayload(".zelk.dbg.sym", [] {
         Bytes payload = le64(1 << 20);
         for (uint32_t k = 0; k < (1u << 20); ++k) {
           Bytes entry = le64(3);
           entry.push_back(static_cast<uint8_t>(k));
           entry.push_back(static_cast<uint8_t>(k >> 8));
           entry.push_back(static_cast<uint8_t>(k >> 16));
           entry.insert(entry.end(), 5, 0);
           payload.insert(payload.end(), entry.begin(), entry.end());
         }
         return payload;
       }()), 0},
      {"a .comment of 1M empty lines", debugPayload(".comment", Bytes(1 << 20, 0)),
       (1 << 20) + 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.image);
    const uint64_t bound =
        kPerInputByte * row.bytes.size() + kConstant + kPerCommentLine * row.comment_lines;
    uint64_t before = bytesAllocated();
    absl::optional<ELF> elf = ELF::load(row.bytes);
    const uint64_t load = bytesAllocated() - before;
    ASSERT_TRUE(elf.has_value());
    before = bytesAllocated();
    queryEverything(*elf);
    const uint64_t queries = bytesAllocated() - before;
    before = bytesAllocated();
    const bool saved = elf->save().has_value();
    const uint64_t save = bytesAllocated() - before;
    EXPECT_TRUE(saved);
    EXPECT_LE(load, bound) << row.bytes.size() << " bytes in";
    EXPECT_LE(queries, bound) << row.bytes.size() << " bytes in";
    EXPECT_LE(save, bound) << row.bytes.size() << " bytes in";
  }
}

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
