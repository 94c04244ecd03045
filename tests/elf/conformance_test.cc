// Every case of the conformance suite: apply its operations to one object,
// save, and compare with the expected image byte for byte.
#include <cctype>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "elf/elf_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

using testing::hexBytes;
using testing::readShared;
using testing::saveBytes;
using testing::sharedPath;

struct ConformanceCase {
  std::string name;
  std::vector<std::string> ops;
};

std::vector<ConformanceCase> readCases() {
  std::vector<ConformanceCase> cases;
  std::ifstream in(sharedPath("conformance/cases.tsv"));
  std::string line;
  while (std::getline(in, line)) {
    const size_t tab = line.find('\t');
    if (tab == std::string::npos) continue;
    ConformanceCase c;
    c.name = line.substr(0, tab);
    std::istringstream ops(line.substr(tab + 1));
    for (std::string op; ops >> op;) c.ops.push_back(op);
    cases.push_back(std::move(c));
  }
  return cases;
}

uint64_t parseNumber(const std::string& text) {
  return std::stoull(text, nullptr, 0);
}

// Runs the operations; a failed expectation names the offending one.
absl::optional<ELF> applyOps(const std::vector<std::string>& ops) {
  absl::optional<ELF> elf;
  size_t i = 0;
  auto next = [&]() -> std::string {
    EXPECT_LT(i, ops.size()) << "operation cut short";
    return i < ops.size() ? ops[i++] : std::string();
  };
  while (i < ops.size()) {
    const std::string op = next();
    if (op == "new") {
      elf.emplace();
      if (i < ops.size() && (ops[i] == "32" || ops[i] == "64")) {
        const uint8_t elf_class =
            next() == "64" ? engine::kClass64 : engine::kClass32;
        const uint8_t encoding =
            next() == "msb" ? engine::kDataMsb : engine::kDataLsb;
        imageOf(*elf) = engine::Image(elf_class, encoding);
      }
      continue;
    }
    if (op == "load") {
      const std::string path = next();
      elf = ELF::load(readShared("corpus/" + path));
      EXPECT_TRUE(elf.has_value()) << "load " << path;
      if (!elf.has_value()) return absl::nullopt;
      continue;
    }
    if (!elf.has_value()) {
      ADD_FAILURE() << op << " before new or load";
      return absl::nullopt;
    }
    if (op == "section") {
      const std::string name = next();
      elf->setSection(name, hexBytes(next()));
    } else if (op == "text") {
      const std::vector<uint8_t> code = hexBytes(next());
      elf->setText(code, static_cast<unsigned int>(parseNumber(next())));
    } else if (op == "comment") {
      std::vector<std::string> lines;
      for (std::string line = next(); line != "--" && !line.empty();
           line = next()) {
        lines.push_back(line == "EMPTY" ? std::string() : line);
      }
      elf->setCommentInfo(
          std::vector<absl::string_view>(lines.begin(), lines.end()));
    } else if (op == "machine") {
      elf->setMachine(static_cast<uint16_t>(parseNumber(next())));
    } else if (op == "type") {
      elf->setType(static_cast<uint16_t>(parseNumber(next())));
    } else if (op == "entry") {
      elf->setEntry(parseNumber(next()));
    } else {
      ADD_FAILURE() << "unknown operation " << op;
      return absl::nullopt;
    }
  }
  return elf;
}

class ConformanceTest : public ::testing::TestWithParam<ConformanceCase> {};

TEST_P(ConformanceTest, SavedBytesMatchExpected) {
  const ConformanceCase& c = GetParam();
  const std::vector<uint8_t> expected =
      readShared("conformance/expected/" + c.name + ".elf");
  ASSERT_FALSE(expected.empty()) << "no expected image for " << c.name;

  absl::optional<ELF> elf = applyOps(c.ops);
  ASSERT_TRUE(elf.has_value());
  const std::vector<uint8_t> actual = saveBytes(*elf);
  ASSERT_FALSE(actual.empty()) << "save failed";
  EXPECT_EQ(actual.size(), expected.size());
  size_t first_difference = 0;
  while (first_difference < actual.size() &&
         first_difference < expected.size() &&
         actual[first_difference] == expected[first_difference]) {
    ++first_difference;
  }
  EXPECT_TRUE(actual == expected)
      << "first difference at offset 0x" << std::hex << first_difference;
}

std::string caseName(const ::testing::TestParamInfo<ConformanceCase>& info) {
  std::string name = info.param.name;
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Cases, ConformanceTest, ::testing::ValuesIn(readCases()),
                         caseName);

TEST(ConformanceSuiteTest, AllCasesAreRead) {
  EXPECT_EQ(readCases().size(), 58u);
}

}  // namespace
}  // namespace zelk_elf
