// The engine: the load rules for malformed input, the edits, the layout with
// its refusals and the order of nested segments, and the write.
#include <algorithm>
#include <deque>
#include <functional>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "engine/image.h"
#include "engine/layout.h"
#include "gtest/gtest.h"
#include "support/elf_builder.h"
#include "support/test_support.h"

namespace zelk_elf {
namespace engine {
namespace {

using testing::Bytes;
using testing::bytesOf;
using testing::ElfBuilder;
using testing::hex;

// The saved bytes; empty when the save fails.
Bytes saved(Image& image) {
  std::ostringstream out;
  return image.save(out).ok() ? bytesOf(out.str()) : Bytes();
}

// A PROGBITS section holding `data`; valid until the next section is added.
Section& addData(Image& image, absl::string_view name, const Bytes& data, uint64_t flags = 0) {
  Section& s = image.addSection(name);
  s.header.type = kShtProgbits;
  s.header.flags = flags;
  s.header.addralign = 1;
  EXPECT_TRUE(s.setData(data.data(), data.size()).ok());
  return s;
}

// An executable section in a PT_LOAD of its own.
Section& addLoaded(Image& image, const Bytes& code, uint64_t align) {
  Section& s = addData(image, ".text", code, kShfAlloc | kShfExecInstr);
  s.header.addralign = align;
  Segment& g = image.addSegment();
  g.header = {kPtLoad, kPfR | kPfX, 0, 0, 0, 0, 0, 0x1000};
  g.addSectionIndex(static_cast<uint16_t>(image.sections().size() - 1), align);
  return s;
}

// An address the layout must honour, as a loaded image carries one.
void setAddress(Section& s, uint64_t address) { s.header.addr = address, s.addr_init = true; }

TEST(SectionEditTest, NamesAreAppendedAndDataCopied) {
  Image image;
  image.addSection(".a"), image.addSection(".a");
  image.addSection(absl::string_view("ab\0cd", 5));  // found whole, stored up to the NUL
  const absl::Span<Section> s = image.sections();
  EXPECT_EQ((std::vector<uint64_t>{s[2].header.name, s[3].header.name, s[4].header.name,
                                   s[1].header.size}),
            (std::vector<uint64_t>{11, 14, 17, 20}));  // never shared
  EXPECT_EQ((std::vector<const Section*>{image.findSection(".a"), image.findSection(""),
                                         image.findSection(".b"),
                                         image.findSection(absl::string_view("ab\0cd", 5))}),
            (std::vector<const Section*>{&s[2], &s[0], nullptr, &s[4]}));
  Image reloaded;
  ASSERT_TRUE(reloaded.load(saved(image)).ok());
  EXPECT_EQ(reloaded.sections()[4].name, "ab");

  const Bytes data = {1, 2, 3};
  EXPECT_TRUE(s[2].setData(data.data(), data.size()).ok());
  EXPECT_TRUE(s[2].header.size == 3 && bytesOf(s[2].bytes()) == data &&
              s[2].bytes().data() != data.data());
  const uint8_t* held = s[2].bytes().data();
  for (int i = 0; i < 100; ++i) image.addSection(".s" + std::to_string(i)), image.addSegment();
  Section& t = image.sections()[2];
  EXPECT_EQ(t.bytes().data(), held);  // stable across growth
  const SegmentHeader& fresh = image.segments()[99].header;  // a new segment is all zeros
  EXPECT_EQ((std::vector<uint64_t>{fresh.type, fresh.flags, fresh.align}),
            (std::vector<uint64_t>{0, 0, 0}));
  EXPECT_TRUE(t.setData(nullptr, 0).ok());
  EXPECT_TRUE(t.bytes().data() == nullptr && t.header.size == 0);
  // NOBITS keeps what it held and records that count.
  EXPECT_TRUE(t.setData(data.data(), data.size()).ok());
  t.header.type = kShtNobits;
  EXPECT_TRUE(t.setData(data.data(), 1).ok());
  EXPECT_TRUE(t.header.size == 3 && bytesOf(t.bytes()) == data);
}

using Edit = std::function<void(ElfBuilder&, Bytes&)>;

// An edit of the builder, after which the image is built again.
Edit rebuilt(std::function<void(ElfBuilder&)> edit) {
  return [edit](ElfBuilder& b, Bytes& out) {
    edit(b);
    out = b.build();
  };
}

Edit withSegment(SegmentHeader g) {
  return rebuilt([g](ElfBuilder& b) { b.segments.push_back(g); });
}

// The names of the sections and the bytes each holds.
std::string summary(const Image& image) {
  std::string names, held;
  for (const Section& s : image.sections()) {
    names += std::string(s.name) + ",", held += std::to_string(s.bytes().size()) + ",";
  }
  return names + " " + held;
}

// The basic image with one edit: refused with a reason saying what failed and
// where (and the image unchanged), or loaded with these sections.
TEST(LoadRulesTest, EditsOfABasicImage) {
  const SegmentHeader load = {kPtLoad, kPfR, 0x200, 0x1000, 0x1000, 0x20, 0x20, 0x1000};
  const std::string as_built = ",.shstrtab,.data, 0,17,6,";
  const std::pair<Edit, std::string> rows[] = {
      {[](ElfBuilder&, Bytes&) {}, as_built},
      {[](ElfBuilder&, Bytes& o) { o.clear(); }, "not an ELF image (no ELF magic number)"},
      {[](ElfBuilder&, Bytes& o) { o[3] = 'f'; }, "not an ELF image (no ELF magic number)"},
      {[](ElfBuilder&, Bytes& o) { o.resize(15); },
       "ELF identification cut short (15 of 16 bytes)"},
      {[](ElfBuilder&, Bytes& o) { o.resize(5); }, "ELF identification cut short (5 of 16 bytes)"},
      {[](ElfBuilder&, Bytes& o) { o.resize(16); }, "ELF header cut short (16 of 64 bytes)"},
      {[](ElfBuilder&, Bytes& o) { o[4] = 3; }, "unknown ELF class 3"},
      {[](ElfBuilder&, Bytes& o) { o[5] = 0; }, "unknown ELF byte order 0"},
      {[](ElfBuilder&, Bytes& o) { o[5] = 3; }, "unknown ELF byte order 3"},
      {[](ElfBuilder&, Bytes& o) { o.resize(63); }, "ELF header cut short (63 of 64 bytes)"},
      {rebuilt([&](ElfBuilder& b) { b.h.phentsize = 55, b.segments = {load}; }),
       "program header entry size 55 is below the record size 56"},
      {[&](ElfBuilder& b, Bytes& o) { b.segments = {load}, o = b.build(), o[32] = 0, o[34] = 1; },
       "program header table ends beyond the input (entry 0 at 0x10000)"},
      {withSegment({kPtLoad, kPfR, 1 << 20, 0, 0, 0x20, 0x20, 0}),
       "segment 0 claims file bytes [0x100000, +0x20) beyond the input of 727 bytes"},
      {withSegment({kPtLoad, kPfR, 727 - 0x20, 0, 0, 0x20, 0x20, 0}), as_built},
      {withSegment({kPtNull, kPfR, 1 << 20, 0, 0, 0x20, 0x20, 0}), as_built},  // not checked
      {withSegment({kPtLoad, kPfR, 1 << 20, 0, 0, 0, 0x20, 0}), as_built},  // no file bytes
      {withSegment({kPtLoad, 0, ~uint64_t{0}, 0, 0, 2, 2, 0}),
       "segment 0 claims file bytes [0xffffffffffffffff, +0x2) beyond the input of 727 bytes"},
      {[&](ElfBuilder& b, Bytes& o) { b.segments = {load}, o = b.build(), o.pop_back(); },
       "section header table ends beyond the input (entry 2 at 0x297), so the program headers "
       "cannot be read"},
      {rebuilt([](ElfBuilder& b) { b.h.shentsize = 63; }), " "},  // no sections
      {[](ElfBuilder& b, Bytes& o) {                              // entries 80 bytes apart
         Bytes wide(o.begin(), o.begin() + b.h.shoff);
         for (int i = 0; i < 3; ++i) {
           const auto entry = o.begin() + b.h.shoff + 64 * i;
           wide.insert(wide.end(), entry, entry + 64), wide.insert(wide.end(), 16, 0xEE);
         }
         o = wide, o[58] = 80;  // e_shentsize
       },
       as_built},
      {[](ElfBuilder&, Bytes& o) { o.pop_back(); }, ",.shstrtab,.data, 0,17,0,"},
      {[](ElfBuilder& b, Bytes& o) { o.resize(b.h.shoff + 64 + 10); }, ",,, 0,0,0,"},
      {[](ElfBuilder&, Bytes& o) { std::fill(o.begin() + 40, o.begin() + 48, 0xFF); },
       ",,, 0,0,0,"},
      {rebuilt([](ElfBuilder& b) { b.sections[2].size = 1000, b.h.shoff = 0x300; }),
       ",.shstrtab,.data, 0,17,431,"},  // running over the table to the end
      {rebuilt([](ElfBuilder& b) {
         b.sections.push_back({0, kShtProgbits, 0, 0, 1 << 20, 8, 0, 0, 1, 0});  // past the end
         b.sections.push_back({0, kShtNobits, 0, 0, 0x200, 4096, 0, 0, 1, 0});
         b.sections.push_back({0, kShtProgbits, 0, 0, 0x200, 0, 0, 0, 1, 0});
       }),
       ",.shstrtab,.data,,,, 0,17,6,0,0,0,"},
      {rebuilt([](ElfBuilder& b) { b.sections[2].name = 17; }), ",.shstrtab,, 0,17,6,"},
      {rebuilt([](ElfBuilder& b) { b.sections[1].size = 16; }), ",.shstrtab,, 0,16,6,"},
      {rebuilt([](ElfBuilder& b) { b.h.shstrndx = 0; }), ",,, 0,17,6,"},
      {rebuilt([](ElfBuilder& b) { b.h.shstrndx = 0xFFFF; }), ",,, 0,17,6,"},
      {rebuilt([](ElfBuilder& b) { b.sections[1].type = kShtNobits; }), ",,, 0,0,6,"},
  };
  Image image;
  for (size_t i = 0; i < sizeof(rows) / sizeof(rows[0]); ++i) {
    SCOPED_TRACE(::testing::Message() << "row " << i);
    ASSERT_TRUE(image.load(ElfBuilder::basic().build()).ok());
    ElfBuilder b = ElfBuilder::basic();
    Bytes bytes = b.build();
    rows[i].first(b, bytes);
    const absl::Status status = image.load(bytes);
    EXPECT_EQ(status.ok() ? summary(image) : std::string(status.message()), rows[i].second);
    EXPECT_EQ(summary(image), status.ok() ? summary(image) : as_built);  // refused: as it was
  }
}

// Names added to a loaded image: nowhere without a usable table, after a
// table cut short (zero-filled), into the next section when it is the table.
TEST(LoadRulesTest, AddingNamesToLoadedTables) {
  const struct {
    const char* edit;
    std::function<void(ElfBuilder&)> apply;
    uint32_t name;  // the offset the added ".x" gets
    size_t table;   // the table's index
    size_t held;    // what the table then holds
  } rows[] = {
      {"as built", [](ElfBuilder&) {}, 17, 1, 20},
      {"index 0", [](ElfBuilder& b) { b.h.shstrndx = 0; }, 0, 0, 0},
      {"index past the table", [](ElfBuilder& b) { b.h.shstrndx = 4; }, 0, 1, 17},
      {"index of the next section", [](ElfBuilder& b) { b.h.shstrndx = 3; }, 1, 3, 4},
      {"NOBITS table", [](ElfBuilder& b) { b.sections[1].type = kShtNobits; }, 17, 1, 0},
      {"NOBITS table claiming 2^64 - 2 bytes",
       [](ElfBuilder& b) { b.sections[1].type = kShtNobits, b.sections[1].size = ~1ull; }, 0, 1, 0},
      {"table claiming 0x40 bytes, 20 held",
       [](ElfBuilder& b) {
         b.sections[1].size = 0x40, b.sections[1].offset = 0x3C0 - 20, b.h.shoff = 0x300;
       },
       0x40, 1, 0x43},
      {"table claiming 1 TiB",
       [](ElfBuilder& b) { b.sections[1].size = uint64_t{1} << 40, b.h.shoff = 0x300; }, 0, 1,
       0x3C0 - 0x200},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.edit);
    ElfBuilder b = ElfBuilder::basic();
    row.apply(b);
    Image image;
    ASSERT_TRUE(image.load(b.build()).ok());
    EXPECT_EQ(image.addSection(".x").header.name, row.name);
    const Section& table = image.sections()[row.table];
    EXPECT_EQ(table.bytes().size(), row.held);
    if (row.name != 0 && row.held > row.name) {  // stored, after a NUL
      EXPECT_EQ(table.header.size, row.held);
      EXPECT_EQ(std::string(reinterpret_cast<const char*>(table.bytes().data()) + row.name - 1, 4),
                std::string("\0.x\0", 4));
    }
  }
}

// By address when ALLOC, else by offset; TLS only in PT_TLS; empty at the end: none.
TEST(LoadRulesTest, SegmentMembership) {
  ElfBuilder b;
  b.body = Bytes(0x100, 0xAB);
  b.sections = {{},
                {0, kShtProgbits, kShfAlloc, 0x1000, 0x200, 0x10, 0, 0, 1, 0},
                {0, kShtProgbits, 0, 0, 0x210, 0x10, 0, 0, 1, 0},
                {0, kShtProgbits, kShfAlloc | kShfTls, 0x1020, 0x220, 0x10, 0, 0, 1, 0},
                {0, kShtProgbits, kShfAlloc, 0x1100, 0x300, 0, 0, 0, 1, 0},
                {0, kShtNobits, kShfAlloc, 0x1030, 0x230, 0x100, 0, 0, 1, 0}};
  b.segments = {{kPtLoad, kPfR, 0x200, 0x1000, 0x1000, 0x100, 0x100, 0x1000},
                {kPtTls, kPfR, 0x220, 0x1020, 0x1020, 0x10, 0x10, 0x10},
                {kPtLoad, kPfR, 0, 0, 0, 0x100, 0x100, 0x1000},
                {4 /* PT_NOTE */, kPfR, 0x200, 0x1000, 0x1000, 0, 0, 4}};
  Image image;
  ASSERT_TRUE(image.load(b.build()).ok());
  std::vector<std::vector<uint16_t>> members;
  for (const Segment& g : image.segments()) members.push_back(g.sections.toVector());
  EXPECT_EQ(members, (std::vector<std::vector<uint16_t>>{{1, 2}, {3}, {0}, {}}));
}

// A segment contained in another is laid out after it, ending at its last member.
TEST(LayoutTest, NestedSegmentEndsAtItsLastMember) {
  Image image;
  addData(image, ".a", Bytes(0x20, 1), kShfAlloc);
  addData(image, ".b", Bytes(0x10, 2), kShfAlloc).header.addralign = 0x40;  // 0x20 of padding
  image.addSegment().header.type = 0x6474e552;  // PT_GNU_RELRO
  image.addSegment().header = {kPtLoad, 0, 0, 0x400000, 0, 0, 0, 0x1000};
  const SegmentHeader& inner = image.segments()[0].header;
  const SegmentHeader& outer = image.segments()[1].header;
  image.segments()[0].addSectionIndex(3, 1);
  image.segments()[1].addSectionIndex(2, 1), image.segments()[1].addSectionIndex(3, 1);
  ASSERT_FALSE(saved(image).empty());
  const SectionHeader& a = image.sections()[2].header;
  const SectionHeader& b = image.sections()[3].header;
  EXPECT_EQ((std::vector<uint64_t>{a.offset, a.addr, b.offset, b.addr, outer.offset, outer.filesz,
                                   outer.memsz, inner.offset, inner.filesz, inner.memsz}),
            (std::vector<uint64_t>{4096, 0x400000, 0x1040, 0x400040, 4096, 0x50, 0x50, 0x1040, 16,
                                   16}));
}

// A stream buffer that takes at most `limit` bytes.
struct LimitedBuf : std::stringbuf {
  explicit LimitedBuf(size_t limit) : limit(limit) {}
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    return (written += n) > limit ? 0 : std::stringbuf::xsputn(s, n);
  }
  std::streamsize limit, written = 0;
};

// The layout refuses only what it cannot place, and images beyond 4 GiB - 1
// bytes; `shoff` is where it put the section headers (0: refused).
TEST(LayoutTest, RefusesOnlyWhatCannotBePlaced) {
  const std::string too_big =
      "the image would pass 4294967295 bytes, the largest it can be (placing section 2 ";
  const auto text = [](Image& i, uint64_t segment, uint64_t address) {
    setAddress(addLoaded(i, {1, 2, 3, 4}, 4), address), i.segments()[0].header.vaddr = segment;
  };
  const struct {
    const char* edit;
    std::function<void(Image&)> apply;
    uint64_t shoff;
    std::string reason = "";  // of a refused layout
  } rows[] = {
      {"aligned at 128 MiB", [](Image& i) { addLoaded(i, Bytes(8, 1), 0x8000000); }, 0x8000020},
      {"100 MiB recorded", [](Image& i) { addData(i, ".big", {1}).header.size = 100 << 20; },
       0x6400050},
      {"aligned at almost 4 GiB", [](Image& i) { i.sections()[0].header.addralign = 0xFF000000u; },
       0xFF000010},
      {"below its segment", [&](Image& i) { text(i, 0x8000, 0x10); }, 0,
       "section 2 (\".text\") lies at address 0x10, below segment 0 at 0x8000"},
      {"inside its segment", [&](Image& i) { text(i, 0x8000, 0x8040); }, 0x1060},
      {"overlapping addresses",
       [&](Image& i) {
         setAddress(addLoaded(i, Bytes(16, 1), 4), 0);
         setAddress(addData(i, ".u", Bytes(16, 2)), 8);
         i.segments()[0].addSectionIndex(3, 1);
       },
       0, "section 3 (\".u\") at address 0x8 overlaps what segment 0 places before it"},
      {"before its segment's start",
       [](Image& i) {
         addData(i, ".a", Bytes(16, 1)), addData(i, ".b", Bytes(16, 2));
         i.addSegment().addSectionIndex(2, 1);
         i.addSegment().addSectionIndex(3, 1), i.segments()[1].addSectionIndex(2, 1);
       },
       0, "section 2 (\".a\") lies before the start of segment 1"},
      {"a missing member", [](Image& i) { i.addSegment().addSectionIndex(5, 1); }, 0,
       "segment 0 lists section 5 of 2"},
      {"past 4 GiB", [&](Image& i) { text(i, 0, 0xFFFFFF00); }, 0, too_big + "(\".text\"))"},
      {"1 TiB recorded in a 64-bit image",
       [](Image& i) {
         i = Image(kClass64, kDataLsb);
         addData(i, ".big", {}).header.size = uint64_t{1} << 40;
       },
       0, too_big + "(\".big\"))"},
  };
  constexpr uint64_t kSink = 256 << 20;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.edit);
    Image image;
    row.apply(image);
    const absl::StatusOr<uint64_t> size = image.savedSize();
    LimitedBuf sink(kSink);
    std::ostream out(&sink);
    const absl::Status status = image.save(out);
    if (row.shoff == 0) {
      EXPECT_EQ(std::string(status.message()), row.reason);
      EXPECT_EQ(size.status(), status);
      continue;
    }
    const uint64_t end =
        image.header().shoff + uint64_t{image.header().shentsize} * image.header().shnum;
    EXPECT_EQ(image.header().shoff, row.shoff);
    EXPECT_EQ(size.value_or(0), end);
    EXPECT_EQ(status.ok(), end <= kSink);
    EXPECT_EQ(sink.str().size(), status.ok() ? end : sink.str().size());
  }
}

// A cut name table entry holds nothing; saved back, its place and size stay,
// filled with zeros. Wider entries: each record at its entry, the file ending
// with the last one.
TEST(LayoutTest, DamagedNewImagesSaveBack) {
  Image image;
  const Bytes fresh = saved(image);
  Image loaded;
  ASSERT_TRUE(loaded.load(absl::MakeConstSpan(fresh.data(), fresh.size() - 1)).ok());
  EXPECT_EQ(summary(loaded) + std::to_string(loaded.sections()[1].header.size), ",, 0,0,11");
  Bytes zeroed = fresh;
  std::fill(zeroed.begin() + 0x34, zeroed.begin() + 0x3F, 0);
  EXPECT_EQ(saved(loaded), zeroed);
  Bytes wide(fresh.begin(), fresh.begin() + 0x40 + 40);  // section entries 48 apart
  wide.resize(0x40 + 48, 0);
  wide.insert(wide.end(), fresh.begin() + 0x68, fresh.end());
  wide[46] = 48;  // e_shentsize
  ASSERT_TRUE(loaded.load(wide).ok());
  EXPECT_EQ(saved(loaded), wide);

  addLoaded(image, {1, 2, 3, 4}, 4);  // two program headers 48 apart, no sections
  image.addSegment().header.type = kPtPhdr;
  Bytes phdrs = saved(image);
  phdrs[42] = 48;  // e_phentsize
  phdrs[48] = 0;   // e_shnum
  ASSERT_TRUE(loaded.load(phdrs).ok());
  EXPECT_EQ(saved(loaded).size(), 52u + 48 + 32);
  EXPECT_EQ(loaded.savedSize().value_or(0), 52u + 48 + 32);
  phdrs[44] = 0;  // e_phnum: the file header alone
  ASSERT_TRUE(loaded.load(phdrs).ok());
  EXPECT_EQ(loaded.savedSize().value_or(0), 52u);
}

// A null entry's bytes are never written (over the file header), and record
// sizes below the class's are raised.
TEST(LayoutTest, RepairsDamagedHeaderFields) {
  Image image;
  Section& null = image.sections()[0];
  null.header.type = kShtProgbits;
  EXPECT_TRUE(null.setData(hex("aabbccdd").data(), 4).ok());
  const Bytes fresh = saved(image);
  EXPECT_EQ(Bytes(fresh.begin(), fresh.begin() + 4), hex("7f454c46"));
  EXPECT_EQ(null.header.offset, 0u);
  // Nor those of a later entry of type NULL, which takes no room.
  Section& blank = addData(image, ".blank", hex("aabbccdd"));
  blank.header.type = kShtNull;
  const Bytes with_bytes = saved(image);
  EXPECT_TRUE(blank.setData(nullptr, 0).ok());
  blank.header.size = 4;
  EXPECT_EQ(with_bytes, saved(image));

  image = Image();
  addLoaded(image, {1, 2, 3, 4}, 4);
  Bytes bytes = saved(image);
  bytes[40] = 0, bytes[42] = 4, bytes[46] = 8;  // e_ehsize, e_phentsize; no sections at all
  Image loaded;
  EXPECT_EQ(std::string(loaded.load(bytes).message()),
            "program header entry size 4 is below the record size 32");
  bytes[42] = 32;
  ASSERT_TRUE(loaded.load(bytes).ok());
  EXPECT_TRUE(loaded.sections().empty());
  loaded.addSection(".n");
  ASSERT_TRUE(image.load(saved(loaded)).ok());
  EXPECT_EQ((std::vector<size_t>{loaded.header().ehsize, loaded.header().shentsize,
                                 image.sections().size(), image.segments().size()}),
            (std::vector<size_t>{52, 40, 1, 1}));
}

TEST(WriteTest, StreamFailureAnywhereFailsTheSave) {
  Image image;
  Section& text = addLoaded(image, Bytes(64, 7), 4);
  for (size_t limit : {0u, 10u, 60u, 4200u}) {
    LimitedBuf buf(limit);
    std::ostream out(&buf);
    EXPECT_EQ(std::string(image.save(out).message()), "the output stream failed while writing")
        << limit;
  }
  // A legal layout placing a section 2 GiB into its segment fails at once.
  setAddress(text, 0x80000000);
  LimitedBuf buf(1 << 20);
  std::ostream out(&buf);
  EXPECT_FALSE(image.save(out).ok());
  EXPECT_EQ(text.header.offset, 0x80001000u);
}


// The definition: offset-0 segments are pulled forward; then the queue's front
// is placed unless a queued segment contains it, which sends it to the back.
std::vector<size_t> queueOrder(const Image& image) {
  const absl::Span<const Segment> g = image.segments();
  std::vector<size_t> w(g.size());
  std::iota(w.begin(), w.end(), 0);
  for (size_t i = 0, k = 0; i < w.size(); ++i) {
    if (i != k && g[w[i]].off_init && g[w[i]].header.offset == 0) {
      if (g[w[k]].header.offset == 0) ++k;
      std::swap(w[i], w[k++]);
    }
  }
  const auto contained = [&](size_t s, size_t t) {
    const std::vector<uint16_t> ls = g[s].sections.toVector(), lt = g[t].sections.toVector();
    return ls.size() < lt.size() && std::includes(lt.begin(), lt.end(), ls.begin(), ls.end());
  };
  std::deque<size_t> queue(w.begin(), w.end()), order;
  while (!queue.empty()) {
    const size_t s = queue.front();
    queue.pop_front();
    const auto holds = [&](size_t t) { return contained(s, t); };
    (std::any_of(queue.begin(), queue.end(), holds) ? queue : order).push_back(s);
  }
  return std::vector<size_t>(order.begin(), order.end());
}

TEST(SegmentOrderTest, EqualsTheQueueOverRandomTables) {
  std::mt19937 random(20261123);
  const auto below = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
  for (int round = 0; round < 3000; ++round) {
    Image image;
    const uint32_t segments = 1 + below(9);
    for (uint32_t i = 0; i < segments; ++i) {
      Segment& g = image.addSegment();
      g.off_init = below(3) == 0;
      g.header.offset = below(2) == 0 ? 0 : 0x1000;
      // Lists without gaps, with gaps, in any order, with repeats, or empty.
      const uint32_t shape = below(5);
      const uint32_t first = 1 + below(6), length = shape == 4 ? 0 : below(7);
      for (uint32_t k = 0; k < length; ++k) {
        const uint32_t index = shape == 0   ? first + k
                               : shape == 1 ? first + 2 * k
                               : shape == 2 ? 1 + below(8)
                                            : first + k / 2;
        g.sections.push_back(static_cast<uint16_t>(index));
      }
    }
    const absl::StatusOr<SegmentOrder> order = segmentOrder(image);
    ASSERT_TRUE(order.ok()) << order.status();
    ASSERT_EQ(std::vector<size_t>(order->begin(), order->end()), queueOrder(image))
        << "round " << round;
  }
}

}  // namespace
}  // namespace engine
}  // namespace zelk_elf
