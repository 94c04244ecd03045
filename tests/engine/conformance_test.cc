// Every conformance case, replayed with engine calls, must save to exactly
// the expected bytes.
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "absl/strings/numbers.h"
#include "absl/strings/str_split.h"
#include "engine/image.h"
#include "engine_test_util.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace engine {
namespace {

using namespace testing_util;

struct Case {
  std::string name;
  std::vector<std::string> ops;
};

std::vector<Case> readCases() {
  std::vector<Case> cases;
  std::ifstream in(sharedDir() + "/conformance/cases.tsv");
  std::string line;
  while (std::getline(in, line)) {
    std::vector<std::string> cols = absl::StrSplit(line, '\t');
    if (cols.size() != 2) continue;
    cases.push_back({cols[0], absl::StrSplit(cols[1], ' ', absl::SkipEmpty())});
  }
  return cases;
}

Bytes hex(const std::string& s) {
  Bytes out;
  if (s == "EMPTY") return out;
  for (size_t i = 0; i + 1 < s.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(std::stoul(s.substr(i, 2), nullptr, 16)));
  }
  return out;
}

uint64_t number(const std::string& s) { return std::stoull(s, nullptr, 0); }

// Applies the operations of one case; false (with a message) when they do
// not make sense.
::testing::AssertionResult replay(const Case& c, Image& image) {
  const std::vector<std::string>& ops = c.ops;
  for (size_t i = 0; i < ops.size();) {
    const std::string& op = ops[i];
    auto arg = [&](size_t k) { return ops.at(i + k); };
    if (op == "new") {
      if (i + 2 < ops.size() && ops[i + 1] == "64" && ops[i + 2] == "msb") {
        image = Image(kClass64, kDataMsb);
        i += 3;
      } else {
        image = Image(kClass32, kDataLsb);
        i += 1;
      }
    } else if (op == "load") {
      auto bytes = readFile(sharedDir() + "/corpus/" + arg(1));
      if (!bytes) return ::testing::AssertionFailure() << "no file " << arg(1);
      if (!image.load(*bytes).ok()) {
        return ::testing::AssertionFailure() << "load failed: " << arg(1);
      }
      i += 2;
    } else if (op == "section") {
      setSection(image, arg(1), hex(arg(2)));
      i += 3;
    } else if (op == "text") {
      setText(image, hex(arg(1)), number(arg(2)));
      i += 3;
    } else if (op == "comment") {
      std::vector<std::string> lines;
      size_t k = i + 1;
      for (; k < ops.size() && ops[k] != "--"; ++k) {
        lines.push_back(ops[k] == "EMPTY" ? "" : ops[k]);
      }
      setComment(image, lines);
      i = k + 1;
    } else if (op == "machine") {
      image.header().machine = (static_cast<uint16_t>(number(arg(1))));
      i += 2;
    } else if (op == "type") {
      image.header().type = (static_cast<uint16_t>(number(arg(1))));
      i += 2;
    } else if (op == "entry") {
      image.setEntry(number(arg(1)));
      i += 2;
    } else {
      return ::testing::AssertionFailure() << "unknown operation " << op;
    }
  }
  return ::testing::AssertionSuccess();
}

size_t firstDifference(const Bytes& a, const Bytes& b) {
  size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
  return i;
}

class ConformanceTest : public ::testing::TestWithParam<Case> {};

TEST_P(ConformanceTest, SavesExpectedBytes) {
  const Case& c = GetParam();
  auto expected =
      readFile(sharedDir() + "/conformance/expected/" + c.name + ".elf");
  ASSERT_TRUE(expected.has_value()) << c.name;
  Image image;
  ASSERT_TRUE(replay(c, image));
  auto saved = saveBytes(image);
  ASSERT_TRUE(saved.has_value());
  EXPECT_EQ(saved->size(), expected->size());
  EXPECT_TRUE(*saved == *expected)
      << "first difference at byte " << firstDifference(*saved, *expected);

  // Saving again, or loading the result and saving, changes nothing.
  auto again = saveBytes(image);
  ASSERT_TRUE(again.has_value());
  EXPECT_TRUE(*again == *saved);
  Image reloaded;
  ASSERT_TRUE(reloaded.load(*saved).ok());
  auto resaved = saveBytes(reloaded);
  ASSERT_TRUE(resaved.has_value());
  EXPECT_TRUE(*resaved == *saved);
}

std::string caseName(const ::testing::TestParamInfo<Case>& info) {
  std::string out;
  for (char ch : info.param.name) out += std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
  return out;
}

INSTANTIATE_TEST_SUITE_P(Cases, ConformanceTest,
                         ::testing::ValuesIn(readCases()), caseName);

TEST(ConformanceCasesTest, AllCasesAreFound) { EXPECT_EQ(readCases().size(), 58u); }

}  // namespace
}  // namespace engine
}  // namespace zelk_elf
