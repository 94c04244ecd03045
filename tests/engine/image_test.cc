// Creating, editing and saving images: the fields a new image starts with,
// the section and segment edits, the layout rules and the save failures.
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "engine/image.h"
#include "engine_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace engine {
namespace {

using namespace testing_util;

// An address the layout must honour, as the image's own loader sets one.
void setAddress(Section& s, uint64_t address) {
  s.header.addr = address;
  s.addr_init = true;
}

uint64_t le(const Bytes& b, size_t at, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v |= uint64_t{b.at(at + i)} << (8 * i);
  return v;
}

TEST(CreateTest, NewImageHoldsNullSectionAndNameTable) {
  Image image;
  EXPECT_EQ(image.elfClass(), kClass32);
  EXPECT_EQ(image.encoding(), kDataLsb);
  const FileHeader& h = image.header();
  EXPECT_EQ(h.ident[6], 1);
  EXPECT_EQ(h.version, 1u);
  EXPECT_EQ(h.ehsize, 52);
  EXPECT_EQ(h.phentsize, 32);
  EXPECT_EQ(h.shentsize, 40);
  EXPECT_EQ(h.shstrndx, 1);
  EXPECT_EQ(h.shnum, 0);  // counts are filled by save
  ASSERT_EQ(image.sections().size(), 2u);
  EXPECT_EQ(image.sections()[0].name, "");
  EXPECT_EQ(image.sections()[0].bytes().data(), nullptr);
  const Section& names = image.sections()[1];
  EXPECT_EQ(names.name, ".shstrtab");
  EXPECT_EQ(names.header.type, kShtStrtab);
  EXPECT_EQ(names.header.name, 1u);
  EXPECT_EQ(names.header.size, 11u);
  EXPECT_EQ(names.header.addralign, 1u);
  EXPECT_EQ(Bytes(names.bytes().begin(), names.bytes().end()),
            bytesOf(std::string("\0.shstrtab\0", 11)));
  EXPECT_EQ(image.segments().size(), 0u);

  image = Image(kClass64, kDataMsb);
  EXPECT_EQ(image.header().ehsize, 64);
  EXPECT_EQ(image.header().phentsize, 56);
  EXPECT_EQ(image.header().shentsize, 64);
}

TEST(CreateTest, SavedNewImageMatchesWorkedExample) {
  Image image;
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved);
  ASSERT_EQ(saved->size(), 144u);
  EXPECT_EQ(le(*saved, 32, 4), 0x40u);  // e_shoff
  EXPECT_EQ(le(*saved, 48, 2), 2u);     // e_shnum
  EXPECT_EQ(le(*saved, 28, 4), 0u);     // e_phoff
  EXPECT_EQ(Bytes(saved->begin() + 0x34, saved->begin() + 0x3F),
            bytesOf(std::string("\0.shstrtab\0", 11)));
  EXPECT_EQ((*saved)[0x3F], 0);
  EXPECT_EQ(le(*saved, 0x68 + 16, 4), 0x34u);  // .shstrtab sh_offset

  image = Image(kClass64, kDataLsb);
  saved = saveBytes(image);
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->size(), 208u);
  EXPECT_EQ(le(*saved, 40, 8), 0x50u);
}

TEST(CreateTest, TextAndDebugSectionsMatchWorkedExample) {
  Image image;
  setSection(image, ".zelk.dbg.pmsize", {0x40, 0, 0, 0});
  setText(image, {1, 2, 3, 4, 5, 6, 7, 8}, 4);
  setComment(image, {"hello", "", "world"});
  image.header().machine = 0x1234;
  image.header().type = kEtExec;
  image.setEntry(0x10);
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->size(), 4376u);
  EXPECT_EQ(image.sections()[1].header.size, 0x2Bu);
  EXPECT_EQ(image.sections()[2].header.name, 11u);
  EXPECT_EQ(image.sections()[3].header.name, 28u);
  EXPECT_EQ(image.sections()[4].header.name, 34u);
  EXPECT_EQ(image.sections()[3].header.offset, 0x1000u);
  EXPECT_EQ(image.sections()[3].header.addr, 0u);
  EXPECT_EQ(image.sections()[1].header.offset, 0x1008u);
  EXPECT_EQ(image.sections()[2].header.offset, 0x1033u);
  EXPECT_EQ(image.sections()[4].header.offset, 0x1037u);
  EXPECT_EQ(image.header().shoff, 0x1050u);
  const Segment& load = image.segments()[0];
  EXPECT_EQ(load.header.offset, 0x1000u);
  EXPECT_EQ(load.header.filesz, 8u);
  EXPECT_EQ(load.header.memsz, 8u);
  EXPECT_EQ(Bytes(saved->begin() + 0x1037, saved->begin() + 0x1043),
            bytesOf(std::string("hello\0world\0", 12)));
  auto again = saveBytes(image);
  ASSERT_TRUE(again);
  EXPECT_TRUE(*again == *saved);
}

TEST(SectionTest, AddAppendsNamesWithoutSharing) {
  Image image;
  image.addSection(".a");
  image.addSection(".a");
  const Section& a = image.sections()[2];
  const Section& b = image.sections()[3];
  EXPECT_EQ(a.name, ".a");
  EXPECT_EQ(b.name, ".a");
  EXPECT_EQ(a.header.name, 11u);
  EXPECT_EQ(b.header.name, 14u);
  EXPECT_EQ(a.header.type, kShtNull);
  EXPECT_EQ(image.sections()[1].header.size, 17u);
  EXPECT_EQ(image.findSection(".a"), &a);
  EXPECT_EQ(image.findSection(""), &image.sections()[0]);
  EXPECT_EQ(image.findSection(".b"), nullptr);
}

TEST(SectionTest, NameWithNulIsStoredUpToTheNul) {
  Image image;
  Section& s = image.addSection(absl::string_view("ab\0cd", 5));
  EXPECT_EQ(s.name, std::string("ab\0cd", 5));
  EXPECT_EQ(image.sections()[1].header.size, 14u);  // "ab" and one NUL appended
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved);
  Image reloaded;
  ASSERT_TRUE(reloaded.load(*saved).ok());
  EXPECT_EQ(reloaded.sections()[2].name, "ab");
}

TEST(SectionTest, NoUsableNameTableGivesOffsetZero) {
  Image image;
  // A loaded image whose string table index lies past the table.
  setSection(image, ".x", {1});
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved);
  (*saved)[50] = 9;  // e_shstrndx
  Image loaded;
  ASSERT_TRUE(loaded.load(*saved).ok());
  EXPECT_EQ(loaded.sections()[2].name, "");
  Section& added = loaded.addSection(".y");
  EXPECT_EQ(added.header.name, 0u);
  EXPECT_EQ(loaded.sections()[1].header.size, 14u);
  (*saved)[50] = 0;  // no table at all: names go nowhere, not to section 0
  ASSERT_TRUE(loaded.load(*saved).ok());
  EXPECT_EQ(loaded.addSection(".y").header.name, 0u);
  EXPECT_EQ(loaded.sections()[0].header.size, 0u);
  EXPECT_EQ(loaded.sections()[0].bytes().data(), nullptr);
}

TEST(SectionTest, SetDataReplacesBytesAndSize) {
  Image image;
  Section& s = image.addSection(".d");
  s.header.type = kShtProgbits;
  const Bytes data = {1, 2, 3};
  s.setData(data.data(), data.size());
  EXPECT_EQ(s.header.size, 3u);
  EXPECT_EQ(Bytes(s.bytes().begin(), s.bytes().end()), data);
  EXPECT_NE(s.bytes().data(), data.data());
  s.setData(nullptr, 0);
  EXPECT_EQ(s.bytes().data(), nullptr);
  EXPECT_EQ(s.bytes().size(), 0u);
  EXPECT_EQ(s.header.size, 0u);
  // SHT_NOBITS keeps what it held and records that count.
  s.setData(data.data(), data.size());
  s.header.type = kShtNobits;
  s.header.size = 4096;
  const Bytes other = {9};
  s.setData(other.data(), other.size());
  EXPECT_EQ(s.header.size, 3u);
  EXPECT_EQ(Bytes(s.bytes().begin(), s.bytes().end()), data);
}

TEST(SectionTest, DataPointersSurviveAddingSectionsAndSegments) {
  Image image;
  const size_t text = setText(image, {1, 2, 3, 4}, 4);
  const uint8_t* p = image.sections()[text].bytes().data();
  for (int i = 0; i < 100; ++i) {
    image.addSection(".s" + std::to_string(i));
    image.addSegment();
  }
  EXPECT_EQ(image.sections()[text].bytes().data(), p);
  EXPECT_EQ(p[3], 4);
}

TEST(SegmentTest, SectionListAndAlignment) {
  Image image;
  Segment& g = image.addSegment();
  g.header.align = 0x1000;
  g.addSectionIndex(5, 0x10);
  EXPECT_EQ(g.header.align, 0x1000u);
  g.addSectionIndex(5, 0x4000);  // duplicates are kept
  EXPECT_EQ(g.header.align, 0x4000u);
  EXPECT_EQ(g.sections.toVector(), (std::vector<uint16_t>{5, 5}));
  // Index 5 does not exist: save refuses instead of reading past the table.
  EXPECT_FALSE(saveBytes(image));
}

// Segments laid out in order: offset-0 segments that were laid out before
// move forward, and a segment contained in another comes after it.
TEST(LayoutTest, NestedSegmentEndsAtItsLastMember) {
  Image image;
  image.header().type = kEtExec;
  const size_t ia = setSection(image, ".a", Bytes(0x20, 1));
  const size_t ib = setSection(image, ".b", Bytes(0x10, 2));
  image.sections()[ia].header.flags = kShfAlloc;
  image.sections()[ib].header.flags = kShfAlloc;
  image.addSegment().header.type = 0x6474e552;  // PT_GNU_RELRO
  image.addSegment().header.type = kPtLoad;
  Segment& inner = image.segments()[0];
  Segment& outer = image.segments()[1];
  inner.addSectionIndex(static_cast<uint16_t>(ib), 1);
  outer.header.vaddr = 0x400000;
  outer.header.align = 0x1000;
  outer.addSectionIndex(static_cast<uint16_t>(ia), 1);
  outer.addSectionIndex(static_cast<uint16_t>(ib), 1);
  ASSERT_TRUE(saveBytes(image));
  const Section& a = image.sections()[ia];
  const Section& b = image.sections()[ib];
  EXPECT_EQ(outer.header.offset, 0x1000u);
  EXPECT_EQ(a.header.offset, 0x1000u);
  EXPECT_EQ(a.header.addr, 0x400000u);
  EXPECT_EQ(b.header.offset, 0x1020u);
  EXPECT_EQ(b.header.addr, 0x400020u);
  EXPECT_EQ(outer.header.filesz, 0x30u);
  EXPECT_EQ(inner.header.offset, 0x1020u);
  EXPECT_EQ(inner.header.filesz, 0x10u);
  EXPECT_EQ(inner.header.memsz, 0x10u);
}

// A stream that accepts nothing past a fixed number of bytes.
class LimitedBuf : public std::stringbuf {
 public:
  explicit LimitedBuf(size_t limit) : limit_(limit) {}

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    written_ += static_cast<size_t>(n);
    if (written_ > limit_) return 0;
    return std::stringbuf::xsputn(s, n);
  }

 private:
  size_t limit_;
  size_t written_ = 0;
};

// The layout refuses only what it cannot place: a member that would go below
// its segment's start or over an earlier member, and images beyond 4 GiB - 1
// bytes. Everything else is laid out as given, however much padding it asks
// for. `shoff` is where the layout put the section header table (0: refused);
// saving into a 256 MiB sink writes the images below that size whole.
TEST(LayoutTest, RefusesOnlyWhatCannotBePlaced) {
  struct Row {
    const char* edit;
    std::function<void(Image&)> apply;
    uint64_t shoff;
    std::string reason;  // of a refused layout
  };
  const Row rows[] = {
      {"text aligned at 128 MiB",
       [](Image& i) { setText(i, Bytes(8, 1), 0x8000000); }, 0x8000020, ""},
      {"a section recording 100 MiB more than it holds",
       [](Image& i) {
         const size_t big = setSection(i, ".big", {1});
         i.sections()[big].header.size = 100 << 20;
       },
       52 + 16 + (100 << 20) + 12, ""},
      {"an alignment of almost 4 GiB",
       [](Image& i) { i.sections()[0].header.addralign = 0xFF000000u; }, 0xFF000010, ""},
      {"a member addressed below its segment",
       [](Image& i) {
         const size_t t = setText(i, {1, 2, 3, 4}, 4);
         i.segments()[0].header.vaddr = 0x8000;
         setAddress(i.sections()[t], 0x10);
       },
       0, "section 2 (\".text\") lies at address 0x10, below segment 0 at 0x8000"},
      {"a member addressed inside its segment",
       [](Image& i) {
         const size_t t = setText(i, {1, 2, 3, 4}, 4);
         i.segments()[0].header.vaddr = 0x8000;
         setAddress(i.sections()[t], 0x8040);
       },
       0x1060, ""},
      {"members with overlapping addresses",
       [](Image& i) {
         const size_t t = setText(i, Bytes(16, 1), 4);
         const size_t u = setSection(i, ".u", Bytes(16, 2));
         i.segments()[0].addSectionIndex(static_cast<uint16_t>(u), 1);
         setAddress(i.sections()[t], 0);
         setAddress(i.sections()[u], 8);
       },
       0, "section 3 (\".u\") at address 0x8 overlaps what segment 0 places before it"},
      {"a member placed before its segment's start",
       [](Image& i) {
         const auto a = static_cast<uint16_t>(setSection(i, ".a", Bytes(16, 1)));
         const auto b = static_cast<uint16_t>(setSection(i, ".b", Bytes(16, 2)));
         i.addSegment().addSectionIndex(a, 1);
         Segment& second = i.addSegment();
         second.addSectionIndex(b, 1);
         second.addSectionIndex(a, 1);
       },
       0, "section 2 (\".a\") lies before the start of segment 1"},
      {"an offset past 4 GiB in a 32-bit image",
       [](Image& i) {
         const size_t t = setText(i, {1, 2, 3, 4}, 4);
         setAddress(i.sections()[t], 0xFFFFFF00);
       },
       0, "the image would pass 4294967295 bytes, the largest it can be (placing section 2 (\".text\"))"},
      {"a 64-bit section recording 1 TiB",
       [](Image& i) {
         i = Image(kClass64, kDataLsb);
         const size_t big = setSection(i, ".big", {1});
         i.sections()[big].header.size = uint64_t{1} << 40;
       },
       0, "the image would pass 4294967295 bytes, the largest it can be (placing section 2 (\".big\"))"},
  };
  constexpr uint64_t kSink = 256 << 20;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.edit);
    Image image;
    row.apply(image);
    LimitedBuf sink(kSink);
    std::ostream out(&sink);
    const absl::Status status = image.save(out);
    const bool saved = status.ok();
    if (row.shoff == 0) {
      EXPECT_EQ(std::string(status.message()), row.reason);
    }
    EXPECT_EQ(image.header().shoff, row.shoff);
    const FileHeader& h = image.header();
    const uint64_t end = h.shoff + uint64_t{h.shentsize} * (h.shnum - 1) + 40;
    EXPECT_EQ(saved, row.shoff != 0 && end <= kSink);
    if (saved) {
      EXPECT_EQ(sink.str().size(), end);
    }
  }
}

// Entries wider than their records: each record is written at its entry,
// and the file ends with the last record, not with the last entry.
TEST(LayoutTest, WideEntriesEndTheFileWithTheirLastRecord) {
  Image image;
  auto fresh = saveBytes(image);
  ASSERT_TRUE(fresh);
  ASSERT_EQ(fresh->size(), 144u);
  // The new image's section table re-laid 48 bytes apart.
  Bytes wide(fresh->begin(), fresh->begin() + 0x40 + 40);
  wide.resize(0x40 + 48, 0);
  wide.insert(wide.end(), fresh->begin() + 0x68, fresh->end());
  wide[46] = 48;  // e_shentsize
  Image loaded;
  ASSERT_TRUE(loaded.load(wide).ok());
  EXPECT_EQ(saveBytes(loaded), wide);  // 0x40 + 48 + 40 = 152 bytes

  // Program headers 48 bytes apart, no sections: they end the file.
  setText(image, {1, 2, 3, 4}, 4);
  image.addSegment().header.type = kPtPhdr;
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved);
  (*saved)[42] = 48;  // e_phentsize
  (*saved)[48] = 0;   // e_shnum
  Image phdrs;
  ASSERT_TRUE(phdrs.load(*saved).ok());
  auto resaved = saveBytes(phdrs);
  ASSERT_TRUE(resaved);
  EXPECT_EQ(resaved->size(), 52u + 48 + 32);
  Image again;
  EXPECT_TRUE(again.load(*resaved).ok());
}

TEST(LayoutTest, NullEntryBytesAreNeverWritten) {
  // A damaged null entry may claim a type and bytes; writing them at its
  // recorded offset 0 would overwrite the file header.
  Image image;
  Section& null = image.sections()[0];
  null.header.type = kShtProgbits;
  const uint8_t junk[] = {0xAA, 0xBB, 0xCC, 0xDD};
  null.setData(junk, sizeof junk);
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved);
  EXPECT_EQ((*saved)[0], 0x7F);
  EXPECT_EQ((*saved)[1], 'E');
  EXPECT_EQ(null.header.offset, 0u);
  Image again;
  EXPECT_TRUE(again.load(*saved).ok());
}

TEST(LayoutTest, SmallStoredRecordSizesAreRaised) {
  Image image;
  setText(image, {1, 2, 3, 4}, 4);
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved);
  (*saved)[40] = 0;  // e_ehsize
  (*saved)[42] = 4;  // e_phentsize
  (*saved)[46] = 8;  // e_shentsize: sections are then not read at all
  Image loaded;
  EXPECT_FALSE(loaded.load(*saved).ok());  // program headers need their size
  (*saved)[42] = 32;
  ASSERT_TRUE(loaded.load(*saved).ok());
  EXPECT_EQ(loaded.sections().size(), 0u);
  loaded.addSection(".n");
  auto resaved = saveBytes(loaded);
  ASSERT_TRUE(resaved);
  EXPECT_EQ(loaded.header().ehsize, 52);
  EXPECT_EQ(loaded.header().shentsize, 40);
  Image reloaded;
  ASSERT_TRUE(reloaded.load(*resaved).ok());
  EXPECT_EQ(reloaded.sections().size(), 1u);
  EXPECT_EQ(reloaded.segments().size(), 1u);
}


TEST(WriteTest, StreamFailureAnywhereFailsTheSave) {
  Image image;
  setText(image, Bytes(64, 7), 4);
  for (size_t limit : {0u, 10u, 60u, 4200u}) {
    LimitedBuf buf(limit);
    std::ostream out(&buf);
    EXPECT_FALSE(image.save(out).ok()) << limit;
  }
  std::ostringstream bad;
  bad.setstate(std::ios::failbit);
  EXPECT_FALSE(image.save(bad).ok());
}

// Found by fuzzing: a legal layout that places a section 2 GiB into its
// segment. Saving into a sink that refuses large output fails at once.
TEST(WriteTest, HugeButLegalGapFailsOnABoundedSink) {
  Image image;
  const size_t t = setText(image, {1, 2, 3, 4}, 4);
  setAddress(image.sections()[t], 0x80000000);
  LimitedBuf buf(1 << 20);
  std::ostream out(&buf);
  EXPECT_FALSE(image.save(out).ok());
  EXPECT_EQ(image.sections()[t].header.offset, 0x80001000u);
}

TEST(WriteTest, ClassAndByteOrderOfTheFields) {
  Image image;
  image = Image(kClass64, kDataMsb);
  image.header().machine = 0x1234;
  image.setEntry(0x0102030405060708);
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved);
  EXPECT_EQ((*saved)[18], 0x12);
  EXPECT_EQ((*saved)[19], 0x34);
  EXPECT_EQ((*saved)[24], 0x01);
  EXPECT_EQ((*saved)[31], 0x08);
  Image reloaded;
  ASSERT_TRUE(reloaded.load(*saved).ok());
  EXPECT_EQ(reloaded.elfClass(), kClass64);
  EXPECT_EQ(reloaded.encoding(), kDataMsb);
  EXPECT_EQ(reloaded.header().machine, 0x1234);
  EXPECT_EQ(reloaded.header().entry, 0x0102030405060708u);
}

}  // namespace
}  // namespace engine
}  // namespace zelk_elf
