// Loading, every query and saving allocate in proportion to the input, also
// for hostile and large images. This binary counts every allocation.
#include <cstdint>
#include <string>
#include <vector>

#include "capi/handle.h"
#include "gtest/gtest.h"
#include "support/alloc_hook.h"
#include "support/elf_builder.h"
#include "support/test_support.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace testing {
namespace {

// Bytes each operation may allocate per byte of input, and a constant.
constexpr uint64_t kPerInputByte = 8;
constexpr uint64_t kConstant = uint64_t{1} << 20;
// Each line of ".comment" is a 16-byte view, whatever its length: the one
// cost the public data model puts beyond the input's proportion.
constexpr uint64_t kPerCommentLine = 16;

// A 32-bit image: the null entry, the name table, then `count` copies of
// `section` (named ".s").
ElfBuilder image(size_t count = 0, engine::SectionHeader section = {}) {
  ElfBuilder b(engine::kClass32);
  b.body = bytesOf(std::string("\0.shstrtab\0.s\0", 14));
  b.sections = {{}, {1, engine::kShtStrtab, 0, 0, 0x200, 14, 0, 0, 1, 0}};
  b.sections.resize(2 + count, section);
  b.h.shstrndx = 1;
  return b;
}

// A section `name` holding `payload`.
Bytes withPayload(const std::string& name, const Bytes& payload) {
  ElfBuilder b = image();
  b.body.insert(b.body.end(), name.begin(), name.end() + 1);
  b.sections.push_back(
      {14, engine::kShtProgbits, 0, 0, 0x200 + b.body.size(), payload.size(), 0, 0, 1, 0});
  b.sections[1].size = b.body.size();
  b.body.insert(b.body.end(), payload.begin(), payload.end());
  return b.build();
}

// `count` loadable segments over `count` 16-byte sections at addresses 16,
// 32, ...; segment i spans the first i + 1 of them, or all of them.
Bytes segmentsOverSections(uint32_t count, bool nested) {
  ElfBuilder b = image(count, {11, engine::kShtNobits, engine::kShfAlloc, 0, 0, 16, 0, 0, 1, 0});
  for (uint32_t k = 0; k < count; ++k) {
    b.sections[2 + k].addr = 16 * (k + 1);
    b.segments.push_back(
        {engine::kPtLoad, engine::kPfR, 0, 16, 16, 0, 16 * (nested ? k + 1 : count), 0});
  }
  return b.build();
}

void append(Bytes& out, std::initializer_list<Bytes> parts) {
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
}

Bytes le64(uint64_t v) {
  return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24), 0, 0, 0, 0};
}

void queryEverything(ELF& elf) {
  for (const std::string& name : elf.getSectionNames()) {
    elf.getSection(name);
    elf.getSectionSize(name);
  }
  zelkELFHandle h = capi::toHandle(&elf);
  zelkELFDbgID id;
  zelkELFGetDbgID(h, &id);
  zelkELFFreeSpillInfo(zelkELFGetSpillInfo(h));
  zelkELFFreeSWPInfo(zelkELFGetSWPInfo(h));
  zelkELFFreeCFGInfo(zelkELFGetCFGInfo(h));
  const zelkELFSrcList names = zelkELFGetSrcNameList(h);
  for (size_t i = 0; i < names.count; ++i) zelkELFFreeSrcList(zelkELFGetSrcList(h, names.names[i]));
  zelkELFFreeSrcList(names);
}

TEST(BoundedMemoryTest, LoadQueriesAndSaveStayInProportion) {
  // Entries with distinct keys of one byte are the densest maps.
  Bytes sources = le64(256), symbols = le64(1 << 20);
  for (uint32_t k = 0; k < 256; ++k)
    append(sources, {le64(1), {uint8_t(k)}, le64(4096), Bytes(8 * 4096, 0)});
  for (uint32_t k = 0; k < (1u << 20); ++k) {
    append(symbols, {le64(3), {uint8_t(k), uint8_t(k >> 8), uint8_t(k >> 16), 0, 0, 0, 0, 0}});
  }
  const struct {
    const char* image;
    Bytes bytes;
    size_t comment_lines;
  } rows[] = {
      {"4096 nested segments", segmentsOverSections(4096, true), 0},
      {"4096 segments each over all 4096 sections", segmentsOverSections(4096, false), 0},
      {"65535 sections sharing their bytes",
       image(0xFFFD, {11, engine::kShtProgbits, 0, 0, 0x200, 14, 0, 0, 1, 0}).build(), 0},
      {"4M SWP locations", withPayload(".zelk.dbg.swp", Bytes(16 << 20, 1)), 0},
      {"1M spill locations with empty names", withPayload(".zelk.dbg.spill", Bytes(14 << 20, 0)),
       0},
      {"256 sources of 4096 empty strings each", withPayload(".zelk.dbg.src", sources), 0},
      {"1M symbols", withPayload(".zelk.dbg.sym", symbols), 0},
      {"a .comment of 1M empty lines", withPayload(".comment", Bytes(1 << 20, 0)), (1 << 20) + 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.image);
    const uint64_t bound =
        kPerInputByte * row.bytes.size() + kConstant + kPerCommentLine * row.comment_lines;
    uint64_t before = bytesAllocated();
    absl::optional<ELF> elf = ELF::load(row.bytes);
    EXPECT_LE(bytesAllocated() - before, bound) << "load";
    ASSERT_TRUE(elf.has_value());
    before = bytesAllocated();
    queryEverything(*elf);
    EXPECT_LE(bytesAllocated() - before, bound) << "queries";
    before = bytesAllocated();
    EXPECT_TRUE(elf->save().has_value());
    EXPECT_LE(bytesAllocated() - before, bound) << "save";
  }
}

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
