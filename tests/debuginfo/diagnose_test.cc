// Where the first undecodable debug section fails.
#include "debuginfo/diagnose.h"

#include <string>

#include "engine/image.h"
#include "gtest/gtest.h"
#include "serialize/codec_test_util.h"

namespace zelk_elf {
namespace {

using namespace zelk_test;

void Add(engine::Image& image, const std::string& name, const Bytes& data) {
  engine::Section& s = image.addSection(name);
  s.setType(engine::kShtProgbits);
  s.setData(data.data(), data.size());
}

DebugDecodeFailure Diagnose(const engine::Image& image) {
  absl::optional<DebugDecodeFailure> f = diagnoseDebugSections(image);
  return f ? *f : DebugDecodeFailure{"(none)", 0, 0};
}

TEST(DiagnoseTest, NothingToReport) {
  engine::Image image;
  EXPECT_FALSE(diagnoseDebugSections(image));
  Add(image, ".zelk.dbg.swp", B({1, 0, 0, 0}));
  Add(image, ".zelk.dbg.spill", Bytes());
  EXPECT_FALSE(diagnoseDebugSections(image));
}

TEST(DiagnoseTest, PointsAtTheFieldThatCouldNotBeRead) {
  struct Case {
    const char* section;
    Bytes payload;
    size_t offset;
  };
  const Bytes spill = B({0x10, 0, 0, 0, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0x78});
  const Case cases[] = {
      {".zelk.dbg.id", B({1, 2, 0, 3}), 3},
      {".zelk.dbg.id", Bytes(), 0},
      {".zelk.dbg.swp", Bytes(6, 0), 4},
      {".zelk.dbg.cfg", Bytes(20, 0), 20},  // the second edge's first end
      {".zelk.dbg.cfg", Bytes(13, 0), 12},  // the second range's end
      {".zelk.dbg.latency", Bytes(10, 0), 9},
      {".zelk.dbg.latency", Bytes(8, 0), 8},  // value3 of the first location
      // A second spill location whose name length exceeds what follows.
      {".zelk.dbg.spill", Cat({spill, U32(1), B({0, 0}), U64(9), B({1})}), 15 + 6},
      {".zelk.dbg.pmsize", B({1, 2, 3}), 0},
      {".zelk.dbg.verifyinfo", Cat({U64(3), B({1})}), 0},
      // An impossible entry count is reported at the count.
      {".zelk.dbg.src", Cat({U64((1ull << 62) + (1u << 30)), Bytes(16, 0)}), 0},
      // The second string of an entry's list is cut short.
      {".zelk.dbg.src", Cat({U64(1), Str("k"), U64(2), Str("x"), U64(5), B({1})}), 34},
      // The addr of the second symbol is cut short.
      {".zelk.dbg.sym", Cat({U64(2), Str("a"), B({1}), U32(0), Str("b"), B({1, 0, 0})}), 32},
  };
  for (const Case& c : cases) {
    engine::Image image;
    Add(image, c.section, c.payload);
    DebugDecodeFailure f = Diagnose(image);
    EXPECT_EQ(f.section, c.section);
    EXPECT_EQ(f.offset, c.offset) << c.section << " of " << c.payload.size();
    EXPECT_EQ(f.payload_size, c.payload.size()) << c.section;
  }
}

TEST(DiagnoseTest, ReportsTheFirstFailureInLoadOrder) {
  engine::Image image;
  Add(image, ".zelk.dbg.cfg", Bytes(3, 0));
  Add(image, ".zelk.dbg.id", B({1, 2, 0, 3, 0}));
  Add(image, ".zelk.dbg.swp", Bytes(6, 0));
  DebugDecodeFailure f = Diagnose(image);
  EXPECT_EQ(f.section, ".zelk.dbg.swp");
  EXPECT_EQ(f.offset, 4u);
}

}  // namespace
}  // namespace zelk_elf
