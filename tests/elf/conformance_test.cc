// Every case of the conformance suite: its operations applied to one object,
// saved twice and compared with the expected image byte for byte; the image
// then loads back and saves to the same bytes again.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "elf/free_seek_buf.h"
#include "elf/internal.h"
#include "gtest/gtest.h"
#include "support/test_support.h"

namespace zelk_elf {
namespace {

using testing::Bytes;
using testing::hex;
using testing::readShared;
using testing::saveBytes;

std::string word(std::istream& in) {
  std::string text;
  in >> text;
  return text;
}

// Applies the operations of one case: "new [32|64 lsb|msb]" or "load PATH",
// then edits of the object.
absl::optional<ELF> apply(std::istringstream& ops) {
  absl::optional<ELF> elf;
  for (std::string op = word(ops); !op.empty(); op = word(ops)) {
    const std::string a = op == "new" || op == "comment" ? "" : word(ops);
    const bool numeric = op == "machine" || op == "type" || op == "entry";
    const uint64_t n = numeric ? std::stoull(a, nullptr, 0) : 0;
    if (op == "new") {
      elf.emplace();
      const std::streampos at = ops.tellg();
      const std::string bits = word(ops);
      if (bits == "32" || bits == "64") {
        imageOf(*elf) = engine::Image(bits == "64" ? engine::kClass64 : engine::kClass32,
                                      word(ops) == "msb" ? engine::kDataMsb : engine::kDataLsb);
      } else {
        ops.clear(), ops.seekg(at);
      }
    } else if (op == "load") {
      elf = ELF::load(readShared("corpus/" + a));
    } else if (!elf) {
      return elf;
    } else if (op == "section") {
      elf->setSection(a, hex(word(ops)));
    } else if (op == "text") {
      elf->setText(hex(a), unsigned(std::stoul(word(ops), nullptr, 0)));
    } else if (op == "comment") {
      std::vector<std::string> lines;
      for (std::string line = word(ops); line != "--"; line = word(ops)) {
        lines.push_back(line == "EMPTY" ? "" : line);
      }
      elf->setCommentInfo(std::vector<absl::string_view>(lines.begin(), lines.end()));
    } else if (op == "machine" || op == "type") {
      op == "machine" ? elf->setMachine(uint16_t(n)) : elf->setType(uint16_t(n));
    } else {
      EXPECT_EQ(op, "entry");
      elf->setEntry(n);
    }
  }
  return elf;
}

TEST(ConformanceTest, EveryCaseSavesTheExpectedBytes) {
  std::ifstream cases(testing::sharedPath("conformance/cases.tsv"));
  int count = 0;
  for (std::string line; std::getline(cases, line);) {
    const size_t tab = line.find('\t');
    if (tab == std::string::npos) continue;
    const std::string name = line.substr(0, tab);
    SCOPED_TRACE(name);
    ++count;
    std::istringstream ops(line.substr(tab + 1));
    absl::optional<ELF> elf = apply(ops);
    ASSERT_TRUE(elf.has_value());
    const Bytes expected = readShared("conformance/expected/" + name + ".elf");
    const Bytes saved = saveBytes(*elf);
    ASSERT_FALSE(expected.empty());
    const auto diff = std::mismatch(saved.begin(), saved.end(), expected.begin(), expected.end());
    EXPECT_TRUE(saved == expected)
        << "sizes " << saved.size() << " and " << expected.size() << ", first difference at 0x"
        << std::hex << (diff.first - saved.begin());
    EXPECT_EQ(saveBytes(*elf), expected) << "second save";
    FreeSeekBuf buffer;  // through a stream, as the engine also writes
    std::ostream stream(&buffer);
    ASSERT_TRUE(imageOf(*elf).save(stream).ok());
    EXPECT_TRUE(buffer.str() == std::string(expected.begin(), expected.end())) << "streamed";
    absl::StatusOr<ELF> loaded = loadWithReason(saved);
    ASSERT_TRUE(loaded.ok()) << loaded.status();
    EXPECT_EQ(loaded->getSectionNames(), elf->getSectionNames());
    EXPECT_EQ(saveBytes(*loaded), expected) << "saved after reload";
  }
  EXPECT_EQ(count, 58);
}

}  // namespace
}  // namespace zelk_elf
