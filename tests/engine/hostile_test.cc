// Load rules for malformed and hostile input: what is refused, what is
// tolerated, and that nothing reads out of bounds or hangs.
#include <functional>
#include <string>
#include <vector>

#include "engine/image.h"
#include "engine/records.h"
#include "engine_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace engine {
namespace {

using namespace testing_util;

// Builds 64-bit little-endian images by hand: header at 0, program headers
// at 64, then whatever the test places.
struct Builder {
  const RecordFormat* format = &recordFormat(kClass64, kDataLsb);
  FileHeader h;
  std::vector<SectionHeader> sections;
  std::vector<SegmentHeader> segments;
  Bytes body;  // placed at `body_at`
  uint64_t body_at = 0x200;

  Builder() {
    h.ident = {0x7F, 'E', 'L', 'F', kClass64, kDataLsb, 1};
    h.version = 1;
    h.ehsize = 64;
    h.phentsize = 56;
    h.shentsize = 64;
  }

  Bytes build() {
    h.phnum = static_cast<uint16_t>(segments.size());
    h.phoff = segments.empty() ? 0 : 64;
    h.shnum = static_cast<uint16_t>(sections.size());
    if (h.shoff == 0 && !sections.empty()) h.shoff = body_at + body.size();
    Bytes out(std::max<uint64_t>(body_at + body.size(),
                                 h.shoff + 64 * sections.size()));
    format->encodeFileHeader(h, out.data());
    for (size_t i = 0; i < segments.size(); ++i) {
      format->encodeSegmentHeader(segments[i], out.data() + 64 + 56 * i);
    }
    std::copy(body.begin(), body.end(), out.begin() + body_at);
    for (size_t i = 0; i < sections.size(); ++i) {
      format->encodeSectionHeader(sections[i], out.data() + h.shoff + 64 * i);
    }
    return out;
  }

  // Null section, a string table and one data section.
  static Builder basic() {
    Builder b;
    b.body = bytesOf(std::string("\0.shstrtab\0.data\0hello", 23));
    b.sections.resize(3);
    b.sections[1] = {1, kShtStrtab, 0, 0, 0x200, 17, 0, 0, 1, 0};
    b.sections[2] = {11, kShtProgbits, kShfAlloc, 0x1000, 0x211, 6, 0, 0, 1, 0};
    b.h.shstrndx = 1;
    return b;
  }
};

// Every refusal says what failed and where; a refused load leaves the image
// as it was.
TEST(LoadRulesTest, RefusalsSayWhatAndWhere) {
  struct Row {
    const char* edit;
    std::function<void(Builder&, Bytes&)> apply;
    std::string reason;  // empty: loads
  };
  const auto segment = [](Builder& b, Bytes& out) {
    b.segments.push_back({kPtLoad, kPfR, 0x200, 0x1000, 0x1000, 0x20, 0x20, 0x1000});
    out = b.build();
  };
  const Row rows[] = {
      {"as built", [](Builder&, Bytes&) {}, ""},
      {"empty input", [](Builder&, Bytes& out) { out.clear(); },
       "not an ELF image (no ELF magic number)"},
      {"bad magic", [](Builder&, Bytes& out) { out[1] = 'e'; },
       "not an ELF image (no ELF magic number)"},
      {"identification cut", [](Builder&, Bytes& out) { out.resize(15); },
       "ELF identification cut short (15 of 16 bytes)"},
      {"unknown class", [](Builder&, Bytes& out) { out[4] = 3; }, "unknown ELF class 3"},
      {"unknown byte order", [](Builder&, Bytes& out) { out[5] = 0; },
       "unknown ELF byte order 0"},
      {"header cut", [](Builder&, Bytes& out) { out.resize(63); },
       "ELF header cut short (63 of 64 bytes)"},
      {"with a segment", segment, ""},
      {"program header entry too small",
       [&](Builder& b, Bytes& out) {
         b.h.phentsize = 55;
         segment(b, out);
       },
       "program header entry size 55 is below the record size 56"},
      {"program header table outside",
       [&](Builder& b, Bytes& out) {
         segment(b, out);
         out[32] = 0;
         out[34] = 1;  // e_phoff 0x10000
       },
       "program header table ends beyond the input (entry 0 at 0x10000)"},
      {"segment contents outside",
       [&](Builder& b, Bytes& out) {
         segment(b, out);
         b.segments[0].offset = 1 << 20;
         out = b.build();
       },
       "segment 0 claims file bytes [0x100000, +0x20) beyond the input of 727 bytes"},
      {"PT_NULL contents are not checked",
       [&](Builder& b, Bytes& out) {
         segment(b, out);
         b.segments[0].offset = 1 << 20;
         b.segments[0].type = kPtNull;
         out = b.build();
       },
       ""},
      {"segment range wraps",
       [&](Builder& b, Bytes& out) {
         segment(b, out);
         b.segments[0] = {kPtLoad, 0, ~uint64_t{0}, 0, 0, 2, 2, 0};
         out = b.build();
       },
       "segment 0 claims file bytes [0xffffffffffffffff, +0x2) beyond the input of 727 bytes"},
      {"section table cut before the program headers",
       [&](Builder& b, Bytes& out) {
         segment(b, out);
         out.pop_back();
       },
       "section header table ends beyond the input (entry 2 at 0x297), so the program "
       "headers cannot be read"},
  };
  Image image;
  ASSERT_TRUE(image.load(Builder::basic().build()).ok());
  for (const Row& row : rows) {
    SCOPED_TRACE(row.edit);
    Builder b = Builder::basic();
    Bytes bytes = b.build();
    row.apply(b, bytes);
    const absl::Status loaded = image.load(bytes);
    EXPECT_EQ(std::string(loaded.message()), row.reason);
    if (!loaded.ok()) {
      EXPECT_EQ(image.sections().size(), 3u);
      EXPECT_EQ(image.sections()[2].name, ".data");
    }
  }
  // Every prefix of the file header is refused.
  const Bytes valid = Builder::basic().build();
  for (size_t n = 0; n < 64; ++n) {
    EXPECT_FALSE(image.load(absl::MakeConstSpan(valid.data(), n)).ok()) << n;
  }
}

// Entries wholly inside the input are read. The first one cut short keeps
// the bytes that are there and holds no data; every later one reads as zeros.
// Program headers behind a cut table are refused.
TEST(LoadRulesTest, SectionTableRules) {
  struct Row {
    const char* edit;
    std::function<void(Builder&, Bytes&)> apply;
    bool loads;
    std::vector<std::string> names;
    std::vector<size_t> held;  // bytes each section holds
  };
  const Row rows[] = {
      {"as built", [](Builder&, Bytes&) {}, true, {"", ".shstrtab", ".data"},
       {0, 17, 6}},
      {"entry size below the record size: no sections",
       [](Builder& b, Bytes& out) {
         b.h.shentsize = 63;
         out = b.build();
       },
       true, {}, {}},
      {"last entry cut by one byte",
       [](Builder&, Bytes& out) { out.pop_back(); }, true,
       {"", ".shstrtab", ".data"}, {0, 17, 0}},
      {"cut inside the name table's entry: no names resolve",
       [](Builder& b, Bytes& out) { out.resize(b.h.shoff + 64 + 10); }, true,
       {"", "", ""}, {0, 0, 0}},
      {"table past the end: every entry zero",
       [](Builder& b, Bytes& out) {
         for (int i = 40; i < 48; ++i) out[i] = 0xFF;  // e_shoff
         (void)b;
       },
       true, {"", "", ""}, {0, 0, 0}},
      {"cut table with program headers",
       [](Builder& b, Bytes& out) {
         b.segments.push_back({kPtLoad, kPfR, 0, 0, 0, 0, 0, 0});
         out = b.build();
         out.pop_back();
       },
       false, {}, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.edit);
    Builder b = Builder::basic();
    Bytes bytes = b.build();
    row.apply(b, bytes);
    Image image;
    ASSERT_EQ(image.load(bytes).ok(), row.loads);
    if (!row.loads) continue;
    std::vector<std::string> names;
    std::vector<size_t> held;
    for (size_t i = 0; i < image.sections().size(); ++i) {
      names.emplace_back(image.sections()[i].name);
      held.push_back(image.sections()[i].bytes().size());
    }
    EXPECT_EQ(names, row.names);
    EXPECT_EQ(held, row.held);
  }
}

// A new image cut by its last byte: the name table's entry is cut, so no
// names resolve and the table holds nothing; saved back, the table keeps its
// place and recorded size, filled with zeros.
TEST(LoadRulesTest, NewImageCutByOneByteSavesBack) {
  Image fresh;
  auto bytes = saveBytes(fresh);
  ASSERT_TRUE(bytes);
  ASSERT_EQ(bytes->size(), 144u);
  Bytes cut(bytes->begin(), bytes->end() - 1);
  Image image;
  ASSERT_TRUE(image.load(cut).ok());
  ASSERT_EQ(image.sections().size(), 2u);
  EXPECT_EQ(image.sections()[1].name, "");
  EXPECT_EQ(image.sections()[1].header.size, 11u);
  Bytes expected = *bytes;
  std::fill(expected.begin() + 0x34, expected.begin() + 0x3F, 0);
  EXPECT_EQ(saveBytes(image), expected);
}

TEST(LoadRulesTest, WiderEntriesUseTheirFirstBytes) {
  Builder b = Builder::basic();
  Bytes bytes = b.build();
  // Re-lay the three entries 80 bytes apart.
  Bytes wide(bytes.begin(), bytes.begin() + b.h.shoff);
  for (int i = 0; i < 3; ++i) {
    wide.insert(wide.end(), bytes.begin() + b.h.shoff + 64 * i,
                bytes.begin() + b.h.shoff + 64 * (i + 1));
    wide.insert(wide.end(), 16, 0xEE);
  }
  wide[58] = 80;  // e_shentsize
  Image image;
  ASSERT_TRUE(image.load(wide).ok());
  ASSERT_EQ(image.sections().size(), 3u);
  EXPECT_EQ(image.sections()[2].name, ".data");
  EXPECT_EQ(image.header().shentsize, 80);
}

TEST(LoadRulesTest, HeldBytesStopAtTheEndOfTheInput) {
  Builder b = Builder::basic();
  b.sections[2].size = 1000;  // runs past the end
  b.sections.push_back({0, kShtProgbits, 0, 0, 1 << 20, 8, 0, 0, 1, 0});
  b.sections.push_back({0, kShtNobits, 0, 0, 0x200, 4096, 0, 0, 1, 0});
  b.sections.push_back({0, kShtProgbits, 0, 0, 0x200, 0, 0, 0, 1, 0});
  b.h.shoff = 0x400;  // table after the body, so .data runs over it
  Image image;
  Bytes bytes = b.build();
  ASSERT_TRUE(image.load(bytes).ok());
  const Section& data = image.sections()[2];
  EXPECT_EQ(data.header.size, 1000u);
  EXPECT_EQ(data.bytes().size(), bytes.size() - 0x211);
  EXPECT_EQ(data.bytes().data()[0], 'h');
  EXPECT_EQ(image.sections()[3].bytes().data(), nullptr);  // offset past the end
  EXPECT_EQ(image.sections()[4].bytes().data(), nullptr);  // NOBITS
  EXPECT_EQ(image.sections()[4].header.size, 4096u);
  EXPECT_EQ(image.sections()[5].bytes().data(), nullptr);  // size 0
}

TEST(LoadRulesTest, NameRules) {
  Builder b = Builder::basic();
  b.sections[2].name = 17;  // past the table's size
  Image image;
  ASSERT_TRUE(image.load(b.build()).ok());
  EXPECT_EQ(image.sections()[2].name, "");
  EXPECT_EQ(image.sections()[1].name, ".shstrtab");

  b = Builder::basic();
  b.sections[1].size = 16;  // ".data" no longer ends inside the table
  ASSERT_TRUE(image.load(b.build()).ok());
  EXPECT_EQ(image.sections()[2].name, "");
  EXPECT_EQ(image.sections()[1].name, ".shstrtab");

  for (uint16_t index : {0, 4, 0xFFFF}) {
    b = Builder::basic();
    b.h.shstrndx = index;
    ASSERT_TRUE(image.load(b.build()).ok());
    EXPECT_EQ(image.sections()[1].name, "");
    EXPECT_EQ(image.sections()[2].name, "");
    EXPECT_EQ(image.addSection(".x").header.name, 0u);
  }

  // The index of the next section: it becomes its own name table, as the
  // name table of a new image does.
  b = Builder::basic();
  b.h.shstrndx = 3;
  ASSERT_TRUE(image.load(b.build()).ok());
  EXPECT_EQ(image.addSection(".x").header.name, 1u);
  EXPECT_EQ(image.sections()[3].header.size, 4u);

  b = Builder::basic();
  b.sections[1].type = kShtNobits;  // a table that holds nothing
  ASSERT_TRUE(image.load(b.build()).ok());
  EXPECT_EQ(image.sections()[2].name, "");
  // Names still get offsets from the recorded size, but nothing is stored.
  EXPECT_EQ(image.addSection(".x").header.name, 17u);
  EXPECT_EQ(image.sections()[1].bytes().size(), 0u);
}

TEST(LoadRulesTest, AppendingToATruncatedTableFillsZeros) {
  Builder b = Builder::basic();
  b.sections[1].size = 0x40;  // the table claims bytes past the input
  b.h.shoff = 0x300;
  Bytes bytes = b.build();
  bytes.resize(b.h.shoff + 3 * 64);
  // The input ends inside the table: only part of it is held.
  b.sections[1].offset = bytes.size() - 20;
  bytes = b.build();
  Image image;
  ASSERT_TRUE(image.load(bytes).ok());
  ASSERT_EQ(image.sections()[1].bytes().size(), 20u);
  EXPECT_EQ(image.addSection(".new").header.name, 0x40u);
  const Section& names = image.sections()[1];
  ASSERT_EQ(names.bytes().size(), 0x45u);
  EXPECT_EQ(names.header.size, 0x45u);
  EXPECT_EQ(names.bytes().data()[19], bytes.back());
  EXPECT_EQ(names.bytes().data()[20], 0);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(names.bytes().data()) + 0x40), ".new");

  // Missing far more than any real table: no name is stored.
  b.sections[1].size = uint64_t{1} << 40;
  ASSERT_TRUE(image.load(b.build()).ok());
  EXPECT_EQ(image.addSection(".new").header.name, 0u);
}

TEST(MembershipTest, AllocByAddressOthersByOffsetTlsApart) {
  Builder b;
  b.body = Bytes(0x100, 0xAB);
  b.sections = {
      {},
      {0, kShtProgbits, kShfAlloc, 0x1000, 0x200, 0x10, 0, 0, 1, 0},
      {0, kShtProgbits, 0, 0, 0x210, 0x10, 0, 0, 1, 0},
      {0, kShtProgbits, kShfAlloc | kShfTls, 0x1020, 0x220, 0x10, 0, 0, 1, 0},
      {0, kShtProgbits, kShfAlloc, 0x1100, 0x300, 0, 0, 0, 1, 0},  // at end
      {0, kShtNobits, kShfAlloc, 0x1030, 0x230, 0x100, 0, 0, 1, 0},
  };
  b.segments = {
      {kPtLoad, kPfR, 0x200, 0x1000, 0x1000, 0x100, 0x100, 0x1000},
      {kPtTls, kPfR, 0x220, 0x1020, 0x1020, 0x10, 0x10, 0x10},
      {kPtLoad, kPfR, 0, 0, 0, 0x100, 0x100, 0x1000},
      {4 /* PT_NOTE */, kPfR, 0x200, 0x1000, 0x1000, 0, 0, 4},
  };
  Image image;
  ASSERT_TRUE(image.load(b.build()).ok());
  EXPECT_EQ(image.segments()[0].sections.toVector(), (std::vector<uint16_t>{1, 2}));
  EXPECT_EQ(image.segments()[1].sections.toVector(), (std::vector<uint16_t>{3}));
  // Section 0 (offset 0, size 0) sits in every non-TLS segment at offset 0.
  EXPECT_EQ(image.segments()[2].sections.toVector(), (std::vector<uint16_t>{0}));
  EXPECT_TRUE(image.segments()[3].sections.empty());  // size 0
}

TEST(HostileTest, EveryPrefixOfValidImagesIsSafe) {
  for (const char* name : {"real/hello_32", "real/asm64", "real/test_ppc.o"}) {
    auto bytes = readFile(sharedDir() + "/corpus/" + name);
    ASSERT_TRUE(bytes) << name;
    for (size_t n = 0; n <= bytes->size(); n += (n < 600 ? 1 : 97)) {
      Image image;
      if (!image.load(absl::MakeConstSpan(bytes->data(), n)).ok()) continue;
      for (size_t i = 0; i < image.sections().size(); ++i) {
        const Section& s = image.sections()[i];
        if (s.bytes().size() != 0) {
          EXPECT_LE(s.header.offset + s.bytes().size(), n);
        }
      }
      auto saved = saveBytes(image);
      if (saved) {
        Image again;
        EXPECT_TRUE(again.load(*saved).ok()) << name << " prefix " << n;
      }
    }
  }
}

TEST(HostileTest, ExtremeFieldValues) {
  const uint64_t values[] = {0,
                             1,
                             0x7FFFFFFF,
                             0xFFFFFFFF,
                             0x100000000,
                             uint64_t{1} << 63,
                             ~uint64_t{0} - 1,
                             ~uint64_t{0}};
  Builder base = Builder::basic();
  base.segments.push_back(
      {kPtLoad, kPfR, 0x200, 0x1000, 0x1000, 0x20, 0x20, 0x1000});
  for (uint64_t v : values) {
    for (int field = 0; field < 8; ++field) {
      Builder b = base;
      SectionHeader& s = b.sections[2];
      SegmentHeader& g = b.segments[0];
      switch (field) {
        case 0: s.size = v; break;
        case 1: s.offset = v; break;
        case 2: s.addr = v; break;
        case 3: s.addralign = v; break;
        case 4: g.vaddr = v; break;
        case 5: g.memsz = v; break;
        case 6: g.align = v; break;
        case 7: s.name = static_cast<uint32_t>(v); break;
      }
      Image image;
      if (!image.load(b.build()).ok()) continue;
      auto saved = saveBytes(image);
      if (!saved) continue;
      EXPECT_LE(saved->size(), 0x100000000u);
      Image again;
      EXPECT_TRUE(again.load(*saved).ok()) << field << " " << v;
    }
  }
}

TEST(HostileTest, ManyOverlappingSectionsShareTheInput) {
  // 65535 sections that all claim the body and name its first string.
  auto build = [](size_t name_length) {
    Builder b;
    b.body = Bytes(name_length, 'x');
    b.body.push_back(0);
    b.sections.assign(0xFFFF, {0, kShtProgbits, 0, 0, 0x200, ~uint64_t{0},
                               0, 0, 1, 0});
    b.h.shstrndx = 1;
    return b.build();
  };
  Bytes bytes = build(63);
  Image image;
  ASSERT_TRUE(image.load(bytes).ok());
  ASSERT_EQ(image.sections().size(), 0xFFFFu);
  EXPECT_EQ(image.sections()[5].bytes().data(), image.sections()[6].bytes().data());
  EXPECT_EQ(image.sections()[5].bytes().size(), bytes.size() - 0x200);
  EXPECT_EQ(image.sections()[7].name, std::string(63, 'x'));
  // Names view the input: 65535 of them share one string's bytes.
  bytes = build(4096);
  ASSERT_TRUE(image.load(bytes).ok());
  EXPECT_EQ(image.sections()[7].name.data(), image.sections()[8].name.data());
  EXPECT_EQ(image.sections()[7].name.size(), 4096u);
}

// Membership looks only at sections starting inside a segment: 4097
// segments over 4096 sections that none of them holds cost no checks.
TEST(HostileTest, MembershipLooksOnlyInsideEachSegment) {
  Builder b;
  b.sections.assign(4096, {0, kShtProgbits, 0, 0, 0x40, 0, 0, 0, 1, 0});
  b.segments.assign(4097, {kPtLoad, kPfR, 0, 0, 0, 0x40, 0x40, 0});
  b.h.shoff = 64 + 56 * 4097;
  Image image;
  ASSERT_TRUE(image.load(b.build()).ok());
  // Size 0 at the segment's end: member of none.
  EXPECT_EQ(image.segments()[0].sections.size(), 0u);
}

}  // namespace
}  // namespace engine
}  // namespace zelk_elf
