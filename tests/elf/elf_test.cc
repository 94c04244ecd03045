// What only the class does: the object's life, raw sections by name, text and
// comment lines, the views, and the buffer saves are written into.
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "elf/free_seek_buf.h"
#include "elf/internal.h"
#include "gtest/gtest.h"
#include "support/alloc_hook.h"
#include "support/test_support.h"

namespace zelk_elf {
namespace {

using testing::Bytes;
using testing::bytesOf;
using testing::hex;
using testing::saveBytes;
using Names = std::vector<std::string>;

ELF load(const Bytes& bytes) {
  absl::optional<ELF> loaded = ELF::load(bytes);
  EXPECT_TRUE(loaded.has_value());
  return loaded ? std::move(*loaded) : ELF();
}

ELF reload(ELF& elf) { return load(saveBytes(elf)); }

Names lines(const ELF& elf) {
  return elf.commentInfo ? Names(elf.commentInfo->begin(), elf.commentInfo->end()) : Names{"-"};
}

engine::SectionHeader& headerOf(ELF& elf, const std::string& name) {
  return imageOf(elf).findSection(name)->header;
}

TEST(ObjectTest, HeaderFieldsAndMoves) {
  ELF elf;
  EXPECT_EQ(elf.getSectionNames(), (Names{"", ".shstrtab"}));
  EXPECT_FALSE(elf.getMachine() || elf.getType() || elf.getEntry() || elf.dbgID || elf.spillInfo ||
               elf.swpInfo || elf.cfgInfo || elf.srcInfo || elf.symInfo || elf.pmSize ||
               elf.verifyInfo || elf.latencyInfo || elf.commentInfo || elf.text);
  elf.setMachine(0xFFFF), elf.setType(0xFE00), elf.setEntry((uint64_t{1} << 32) + 4);
  EXPECT_EQ((std::vector<uint64_t>{elf.getMachine(), elf.getType(), elf.getEntry()}),
            (std::vector<uint64_t>{0xFFFF, 0xFE00, 4}));  // a 32-bit image keeps the low half
  imageOf(elf) = engine::Image(engine::kClass64, engine::kDataMsb);
  elf.setEntry((uint64_t{1} << 32) + 4);
  EXPECT_EQ(elf.getEntry(), (uint64_t{1} << 32) + 4);

  elf.setText(hex("c0de"), 2);
  elf.spillInfo = SpillInfo{{SpillLoc{1, 2, 3, "x"}}};
  elf.pmSize = 7;
  const uint8_t* text = elf.text->data();
  ELF moved(std::move(elf));
  EXPECT_EQ(moved.text->data(), text);
  EXPECT_TRUE(moved.spillInfo == (SpillInfo{{SpillLoc{1, 2, 3, "x"}}}) && moved.pmSize == 7u);
  ELF target;
  target.verifyInfo = "old";
  target = std::move(moved);
  target = std::move(target);  // keeps it whole
  EXPECT_EQ(target.text->data(), text);
  EXPECT_EQ(target.spillInfo, (SpillInfo{{SpillLoc{1, 2, 3, "x"}}}));
  EXPECT_FALSE(target.verifyInfo.has_value());  // an empty field empties the target's
  moved = ELF();
  EXPECT_EQ(moved.getSectionNames(), (Names{"", ".shstrtab"}));
}

TEST(SectionsTest, RawAccessByName) {
  ELF elf;
  Bytes data = hex("deadbeef00");
  elf.setSection("x", data);
  data[0] = 0;
  EXPECT_EQ(bytesOf(elf.getSection("x")), hex("deadbeef00"));
  for (const char* name : {".text", ".SHSTRTAB", ".shstrta"}) {  // no case folding, no prefixes
    EXPECT_FALSE(elf.hasSection(name) || elf.getSection(name).data() || elf.getSectionSize(name));
  }
  EXPECT_TRUE(elf.hasSection("") && elf.getSectionSize("") == 0);  // the null section
  // Of two sections of one name, the lower index is read and written.
  imageOf(elf).addSection("x");
  elf.setSection("x", hex("01"));
  EXPECT_EQ(imageOf(elf).sections()[3].header.size, 0u);
  // Writing keeps other attributes; NOBITS holds nothing but records its size.
  engine::Section& bss = imageOf(elf).addSection(".bss");
  bss.header = {bss.header.name, engine::kShtNobits, 3, 0x2000, 0, 4096, 1, 2, 16, 4};
  ELF loaded = reload(elf);
  EXPECT_TRUE(loaded.getSection(".bss").empty() && loaded.getSectionSize(".bss") == 4096);
  loaded.setSection(".bss", hex("0102"));
  const engine::SectionHeader& b = headerOf(loaded, ".bss");
  EXPECT_EQ((std::vector<uint64_t>{b.type, b.flags, b.addr, b.size, b.link, b.info, b.addralign,
                                   b.entsize, loaded.getSectionSize("x")}),
            (std::vector<uint64_t>{engine::kShtProgbits, 3, 0x2000, 2, 1, 2, 1, 4, 1}));
  // Bytes of the image's own, even those of the name table that adding a
  // section replaces (a new object's table has no room for another name).
  const std::string added(64, 'n');
  for (const bool text : {false, true}) {
    ELF fresh;
    const Bytes names = bytesOf(fresh.getSection(".shstrtab"));
    text ? fresh.setText(fresh.getSection(".shstrtab"), 4)
         : fresh.setSection(added, fresh.getSection(".shstrtab"));
    EXPECT_EQ(text ? bytesOf(*fresh.text) : bytesOf(fresh.getSection(added)), names) << text;
  }
}

TEST(TextAndCommentTest, WhatConformanceImagesDoNotShow) {
  ELF empty;  // a segment of size 0 carries nothing once reloaded
  empty.setText({}, 4);
  ELF again = reload(empty);
  again.setText({}, 4);
  EXPECT_EQ(imageOf(again).segments().size(), 2u);
  ELF wide;  // the address keeps its low 32 bits
  imageOf(wide) = engine::Image(engine::kClass64, engine::kDataLsb);
  wide.setText(hex("01"), 1);
  headerOf(wide, ".text").addr = 0x1234500002000;
  EXPECT_EQ(wide.getTextAddr(), 0x2000u);
  ELF nobits;  // NOBITS text is an engaged, empty view
  imageOf(nobits).addSection(".text").header = {11, engine::kShtNobits, 0, 0, 0, 64, 0, 0, 1, 0};
  EXPECT_TRUE(reload(nobits).text == absl::Span<const uint8_t>());

  ELF elf;
  elf.setCommentInfo({});
  EXPECT_FALSE(elf.hasSection(".comment"));
  elf.setCommentInfo({"a", "", "b"});
  const uint8_t* held = elf.getSection(".comment").data();
  elf.setCommentInfo({});
  EXPECT_EQ(elf.getSection(".comment").data(), held);
  elf.setCommentInfo(*elf.commentInfo);  // lines viewing the bytes they replace
  EXPECT_EQ(lines(elf), (Names{"a", "b", ""}));
  // Loaded lines split at every NUL; only the first ".comment" is read.
  for (const auto& row : std::vector<std::pair<std::string, Names>>{
           {std::string("a\0\0b\0", 5), {"a", "", "b", ""}}, {"abc", {"abc"}}, {"", {"-"}}}) {
    elf.setSection(".comment", bytesOf(row.first));
    imageOf(elf).addSection(".comment");
    ELF loaded = reload(elf);
    EXPECT_EQ(lines(loaded), row.second);
    EXPECT_TRUE(row.first.empty() || loaded.commentInfo->front().data() ==
                                         (const char*)loaded.getSection(".comment").data());
  }
}

// The views change only when their section's bytes are replaced (also by a
// name appended to a table that is that section), even when caller-assigned.
TEST(ViewsTest, ChangeOnlyWhenTheirSectionIsReplaced) {
  const Bytes caller_text = {7, 8, 9};
  const std::vector<absl::string_view> caller_lines = {"mine"};
  const std::string names(".shstrtab\0.text\0.comment\0", 25);
  const struct {
    const char* edit;
    int table;  // the section holding the names: 2 is .text, 3 .comment
    std::function<void(ELF&)> apply;
    bool text_replaced;
    Names lines;  // empty: the caller's lines stay
  } rows[] = {
      {"another section", 1, [](ELF& e) { e.setSection("o", {1}); }, false, {}},
      {"a debug section", 1, [](ELF& e) { e.setSection(".zelk.dbg.id", {1, 2}); }, false, {}},
      {"save", 1, [](ELF& e) { e.pmSize = 4, e.swpInfo.emplace(), e.save(); }, false, {}},
      {"setText", 1, [](ELF& e) { e.setText({1, 2}, 4); }, true, {}},
      {"setSection .text", 1, [](ELF& e) { e.setSection(".text", {5}); }, true, {}},
      {"setCommentInfo", 1, [](ELF& e) { e.setCommentInfo({"x"}); }, false, {"x", ""}},
      {"setSection .comment", 1, [](ELF& e) { e.setSection(".comment", hex("610062")); }, false,
       {"a", "b"}},
      {"a new name, names in .text", 2, [](ELF& e) { e.setSection("o", {1}); }, true, {}},
      {"a new name, names in .comment", 3, [](ELF& e) { e.setSection("o", {1}); }, false,
       {"", ".shstrtab", ".text", ".comment", "o", ""}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.edit);
    ELF elf;
    elf.setText(bytesOf(row.table == 2 ? '\0' + names : "code"), 4);
    elf.setSection(".comment", bytesOf(row.table == 3 ? '\0' + names : "c1"));
    Bytes bytes = saveBytes(elf);
    bytes[50] = row.table;  // e_shstrndx
    elf = load(bytes);
    std::fill(bytes.begin(), bytes.end(), 0xAA);  // the input is not kept
    elf.text = caller_text;
    elf.commentInfo = caller_lines;
    row.apply(elf);
    const absl::Span<const uint8_t> text =
        row.text_replaced ? elf.getSection(".text") : caller_text;
    EXPECT_TRUE(elf.text == text && elf.text->data() == text.data());
    EXPECT_TRUE(row.lines.empty() ? elf.commentInfo == caller_lines &&
                                        elf.commentInfo->front().data() == caller_lines[0].data()
                                  : lines(elf) == row.lines);
  }
}


TEST(FreeSeekBufTest, Contract) {
  const std::string h(52, 'h'), s(40, 's'), zeros(148, '\0');
  const std::streampos refused(std::streamoff(-1));
  const struct {
    const char* rule;
    std::function<void(FreeSeekBuf&, std::ostream&)> steps;
    std::string content;  // empty: not checked
    bool stream_fails;
  } rows[] = {
      {"seekp(0) on an empty buffer adds nothing",
       [&](FreeSeekBuf&, std::ostream& o) { o.seekp(0) << h; }, h, false},
      {"an empty buffer extends too",
       [&](FreeSeekBuf&, std::ostream& o) { o.seekp(148) << s; }, zeros + s, false},
      {"a position beyond the end fills the gap with zeros",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(200) << s; }, h + zeros + s, false},
      {"a gap of more than one chunk of zeros",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(10052) << s; },
       h + std::string(10000, '\0') + s, false},
      {"a position inside overwrites and keeps the length",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(200) << s, o.seekp(52) << "oo"; },
       h + "oo" + zeros.substr(2) + s, false},
      {"a position exactly at the end appends nothing",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(52); }, h, false},
      {"a negative position fails and changes nothing",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(refused); }, h, true},
      {"a refused position leaves the write position where it was",
       [&](FreeSeekBuf& b, std::ostream& o) {
         o << "0123456789", o.seekp(4);
         EXPECT_EQ(b.pubseekpos(refused), refused);
         b.sputc('X');
       },
       "0123X56789", false},
      {"relative positioning keeps the standard rules",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(100, std::ios_base::beg); }, h, true},
      {"input-only positioning beyond the end fails, in and out extends",
       [&](FreeSeekBuf& b, std::ostream& o) {
         o << "xxxx";
         EXPECT_EQ(b.pubseekpos(10, std::ios_base::in), refused);
         EXPECT_EQ(b.pubseekpos(10), std::streampos(10));
       },
       std::string("xxxx") + std::string(6, '\0'), false},
      {"zeros that cannot be stored fail the positioning, not the process",
       [&](FreeSeekBuf& b, std::ostream& o) {
         o << "xxxx";
         testing::arm(1, testing::FailMode::kFromThenOn);
         const std::streampos got = b.pubseekpos(8 << 20);
         o.seekp(8 << 20);
         testing::disarm();
         EXPECT_EQ(got, refused);
       },
       "", true},
  };
  testing::warmUpFailurePath();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rule);
    FreeSeekBuf buffer;
    std::ostream out(&buffer);
    row.steps(buffer, out);
    EXPECT_EQ(out.fail(), row.stream_fails);
    // A failed growth may keep part of the zeros; the stream saw the failure.
    if (!row.content.empty()) {
      EXPECT_EQ(buffer.str(), row.content);
    }
  }
}

}  // namespace
}  // namespace zelk_elf
