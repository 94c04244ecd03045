// `text` and `commentInfo` change only when the bytes of the section they
// view are replaced; every other edit, and saving, leaves them exactly as
// they are, also when the caller assigned them.
#include <functional>
#include <string>
#include <vector>

#include "elf/elf_test_util.h"
#include "gtest/gtest.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace {

using testing::bytesOf;
using testing::saveBytes;

// Where the section-name table of the test image lives.
enum class NameTable { kOwn, kInText, kInComment };

// An image with .text and .comment, loaded from bytes. With kInText or
// kInComment, e_shstrndx names that section, whose bytes hold the names.
ELF loadImage(NameTable table) {
  const std::string names(".shstrtab\0.text\0.comment\0", 25);
  ELF elf;
  elf.setText(bytesOf(table == NameTable::kInText ? std::string(1, '\0') + names
                                                  : std::string("code")),
              4);
  elf.setSection(".comment", bytesOf(table == NameTable::kInComment
                                         ? std::string(1, '\0') + names
                                         : std::string("c1\0c2\0", 6)));
  std::vector<uint8_t> bytes = saveBytes(elf);
  // e_shstrndx: .text is section 2, .comment section 3.
  if (table == NameTable::kInText) bytes[50] = 2;
  if (table == NameTable::kInComment) bytes[50] = 3;
  absl::optional<ELF> loaded = ELF::load(bytes);
  EXPECT_TRUE(loaded.has_value());
  return loaded ? std::move(*loaded) : ELF();
}

TEST(ViewsTest, ChangeOnlyWhenTheirSectionIsReplaced) {
  static const uint8_t kCallerBytes[3] = {7, 8, 9};
  const absl::Span<const uint8_t> caller_text(kCallerBytes);
  const std::vector<absl::string_view> caller_lines = {"mine"};
  struct Row {
    const char* edit;
    NameTable table;
    std::function<void(ELF&)> apply;
    bool text_replaced;  // else the caller's view stays
    // The lines after the edit; empty: the caller's lines stay.
    std::vector<std::string> lines;
  };
  const Row rows[] = {
      {"setSection of another name", NameTable::kOwn,
       [](ELF& e) { e.setSection("other", {1}); }, false, {}},
      {"setSection of a debug section", NameTable::kOwn,
       [](ELF& e) { e.setSection(".zelk.dbg.id", {1, 2, 0, 3, 0}); }, false, {}},
      {"save adding all nine debug sections", NameTable::kOwn,
       [](ELF& e) {
         e.dbgID = DebugInfoID{1, 2, 3};
         e.spillInfo.emplace();
         e.swpInfo.emplace();
         e.cfgInfo.emplace();
         e.srcInfo.emplace();
         e.symInfo.emplace();
         e.pmSize = 4;
         e.verifyInfo.emplace();
         e.latencyInfo.emplace();
         ASSERT_TRUE(e.save().has_value());
       },
       false, {}},
      {"setText", NameTable::kOwn, [](ELF& e) { e.setText({1, 2}, 4); }, true, {}},
      {"setSection .text", NameTable::kOwn,
       [](ELF& e) { e.setSection(".text", {5}); }, true, {}},
      {"setCommentInfo", NameTable::kOwn,
       [](ELF& e) { e.setCommentInfo({"x"}); }, false, {"x", ""}},
      {"setSection .comment", NameTable::kOwn,
       [](ELF& e) { e.setSection(".comment", bytesOf(std::string("a\0b", 3))); },
       false, {"a", "b"}},
      // Adding a section appends its name to the table, replacing the bytes
      // of the section that holds it.
      {"setSection of a new name, names in .text", NameTable::kInText,
       [](ELF& e) { e.setSection("other", {1}); }, true, {}},
      {"setSection of a new name, names in .comment", NameTable::kInComment,
       [](ELF& e) { e.setSection("other", {1}); }, false,
       {"", ".shstrtab", ".text", ".comment", "other", ""}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.edit);
    ELF elf = loadImage(row.table);
    elf.text = caller_text;
    elf.commentInfo = caller_lines;
    row.apply(elf);

    const absl::Span<const uint8_t> expected_text =
        row.text_replaced ? elf.getSection(".text") : caller_text;
    EXPECT_TRUE(elf.text == expected_text &&
                elf.text->data() == expected_text.data())
        << "text views " << (elf.text ? elf.text->size() : 0) << " bytes";
    if (row.lines.empty()) {
      EXPECT_TRUE(elf.commentInfo.has_value() && elf.commentInfo->size() == 1 &&
                  (*elf.commentInfo)[0].data() == caller_lines[0].data());
    } else {
      EXPECT_EQ(elf.commentInfo.value_or(std::vector<absl::string_view>{}),
                std::vector<absl::string_view>(row.lines.begin(), row.lines.end()));
    }
  }
}

}  // namespace
}  // namespace zelk_elf
