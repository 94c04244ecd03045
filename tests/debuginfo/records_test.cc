// Payload layouts of the debug records, in exact bytes, both directions.
#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "debuginfo/codecs.h"
#include "debuginfo/payload.h"
#include "gtest/gtest.h"
#include "serialize/codec_test_util.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace {

using namespace zelk_test;

// Every proper prefix of a well-formed payload must be refused.
template <typename T>
void ExpectEveryTruncationFails(const Bytes& full) {
  for (size_t n = 0; n < full.size(); ++n) {
    EXPECT_FALSE(Decode<T>(Bytes(full.begin(), full.begin() + n))) << "prefix " << n;
  }
}

TEST(DebugInfoIDCodecTest, ExactBytes) {
  const Bytes wire = B({0x01, 0x02, 0x00, 0x03, 0x00});
  EXPECT_EQ(Decode<DebugInfoID>(wire), (DebugInfoID{1, 2, 3}));
  EXPECT_EQ(Encode(DebugInfoID{1, 2, 3}), wire);
  EXPECT_EQ(Encode(DebugInfoID{0xFF, 0xBEEF, 0x1234}),
            B({0xFF, 0xEF, 0xBE, 0x34, 0x12}));
}

TEST(DebugInfoIDCodecTest, TrailingBytesAreNotRead) {
  size_t left = 0;
  EXPECT_EQ(Decode<DebugInfoID>(B({0x01, 0x02, 0x00, 0x03, 0x00, 0xFF}), &left),
            (DebugInfoID{1, 2, 3}));
  EXPECT_EQ(left, 1u);
}

TEST(DebugInfoIDCodecTest, ShortPayloadsAreRefused) {
  ExpectEveryTruncationFails<DebugInfoID>(B({0x01, 0x02, 0x00, 0x03, 0x00}));
}

TEST(SpillCodecTest, ExactBytesOfOneLocation) {
  const Bytes wire = B({0x10, 0, 0, 0, 0x02, 0x01, 0x01, 0, 0, 0, 0, 0, 0, 0, 0x78});
  const SpillLoc loc{16, 2, 1, "x"};
  EXPECT_EQ(Encode(loc), wire);
  EXPECT_EQ(Decode<SpillLoc>(wire), loc);
  EXPECT_EQ(Encode(SpillInfo{{loc}}), wire);
  EXPECT_EQ(Decode<SpillInfo>(wire), (SpillInfo{{loc}}));
}

TEST(SpillCodecTest, ListRunsToTheEnd) {
  const SpillInfo info{{{1, 0, 7, ""}, {0xFFFFFFFF, 255, 5, std::string("a\0b", 3)}}};
  const Bytes wire = Cat({U32(1), B({0, 7}), U64(0), U32(0xFFFFFFFF), B({255, 5}),
                          U64(3), B({'a', 0, 'b'})});
  EXPECT_EQ(Encode(info), wire);
  EXPECT_EQ(Decode<SpillInfo>(wire), info);  // kind 7 passes through
  EXPECT_EQ(Decode<SpillInfo>(Bytes()), SpillInfo());
  EXPECT_TRUE(Encode(SpillInfo()).empty());
}

TEST(SpillCodecTest, MalformedTailsAreRefused) {
  const Bytes one = B({0x10, 0, 0, 0, 0x02, 0x01, 0x01, 0, 0, 0, 0, 0, 0, 0, 0x78});
  // Each prefix of a second element after a whole first one.
  const Bytes two = Cat({one, one});
  for (size_t n = one.size() + 1; n < two.size(); ++n) {
    EXPECT_FALSE(Decode<SpillInfo>(Bytes(two.begin(), two.begin() + n))) << n;
  }
  ExpectEveryTruncationFails<SpillLoc>(one);
  // Name lengths larger than what follows, up to the full 64-bit range.
  for (uint64_t len : {2ull, (1ull << 32) + 1, 1ull << 62, ~0ull}) {
    EXPECT_FALSE(Decode<SpillInfo>(Cat({U32(1), B({0, 0}), U64(len), B({'x'})}))) << len;
  }
}

TEST(SWPCodecTest, FourBytesPerLocation) {
  const Bytes wire = B({1, 0, 0, 0, 2, 0, 0, 0});
  EXPECT_EQ(Decode<SWPInfo>(wire), (SWPInfo{{{1}, {2}}}));
  EXPECT_EQ(Encode(SWPInfo{{{1}, {2}}}), wire);
  EXPECT_FALSE(Decode<SWPInfo>(B({1, 0, 0, 0, 2, 0})));
  for (size_t n = 1; n < 4; ++n) EXPECT_FALSE(Decode<SWPInfo>(Bytes(n, 0))) << n;
  EXPECT_EQ(Encode(SWPLoc{0xA1B2C3D4}), B({0xD4, 0xC3, 0xB2, 0xA1}));
}

TEST(SWPCodecTest, EmptyPayloadIsAnEmptyList) {
  EXPECT_TRUE(Encode(SWPInfo()).empty());
  auto v = Decode<SWPInfo>(Bytes());
  ASSERT_TRUE(v);
  EXPECT_TRUE(v->locs.empty());
}

TEST(CfgCodecTest, SixteenBytesPerEdge) {
  const Bytes wire = B({1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0});
  const ControlFlowGraph cfg{{std::make_tuple(BasicBlockRange{1, 2}, BasicBlockRange{3, 4})}};
  auto got = Decode<ControlFlowGraph>(wire);
  ASSERT_TRUE(got);
  ASSERT_EQ(got->edges.size(), 1u);
  EXPECT_EQ(std::get<0>(got->edges[0]).start, 1u);
  EXPECT_EQ(std::get<0>(got->edges[0]).end, 2u);
  EXPECT_EQ(std::get<1>(got->edges[0]).start, 3u);
  EXPECT_EQ(std::get<1>(got->edges[0]).end, 4u);
  EXPECT_EQ(Encode(cfg), wire);
  EXPECT_EQ(Encode(BasicBlockRange{5, 5}), B({5, 0, 0, 0, 5, 0, 0, 0}));
  EXPECT_EQ(Decode<BasicBlockRange>(B({5, 0, 0, 0, 5, 0, 0, 0})), (BasicBlockRange{5, 5}));
}

TEST(CfgCodecTest, DuplicateAndUnorderedEdgesAreKept) {
  const auto e = std::make_tuple(BasicBlockRange{9, 1}, BasicBlockRange{0, 0});
  const ControlFlowGraph cfg{{e, e}};
  EXPECT_EQ(Decode<ControlFlowGraph>(Encode(cfg)), cfg);
}

TEST(CfgCodecTest, LengthNotAMultipleOf16IsRefused) {
  for (size_t n = 1; n < 32; ++n) {
    auto v = Decode<ControlFlowGraph>(Bytes(n, 0));
    EXPECT_EQ(v.has_value(), n == 16) << n;
  }
  EXPECT_EQ(Decode<ControlFlowGraph>(Bytes()), ControlFlowGraph());
}

TEST(LatencyCodecTest, NineBytesPerLocation) {
  const LatencyInfoLoc loc{0x01020304, 0xA0, 1, 2, 3, 4};
  const Bytes wire = B({4, 3, 2, 1, 0xA0, 1, 2, 3, 4});
  EXPECT_EQ(Encode(loc), wire);
  EXPECT_EQ(Decode<LatencyInfoLoc>(wire), loc);
  EXPECT_EQ(Decode<LatencyInfo>(Cat({wire, wire})), (LatencyInfo{{loc, loc}}));
  EXPECT_EQ(Encode(LatencyInfo{{loc, loc}}), Cat({wire, wire}));
  for (size_t n = 1; n < 27; ++n) {
    EXPECT_EQ(Decode<LatencyInfo>(Bytes(n, 0)).has_value(), n % 9 == 0) << n;
  }
  EXPECT_EQ(Decode<LatencyInfo>(Bytes()), LatencyInfo());
}

TEST(SymbolMapCodecTest, ExactBytesOfOneEntry) {
  const Bytes wire = B({1, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0x6D,
                        0x61, 0x69, 0x6E, 0x02, 0x00, 0x01, 0x00, 0x00});
  const SymbolMap m{{"main", SymbolAddr{2, 256}}};
  EXPECT_EQ(Decode<SymbolMap>(wire), m);
  EXPECT_EQ(Encode(m), wire);
  EXPECT_EQ(Encode(SymbolAddr{2, 256}), B({2, 0, 1, 0, 0}));
  ExpectEveryTruncationFails<SymbolMap>(wire);
}

TEST(SymbolMapCodecTest, RepeatedKeysAndHostileCounts) {
  const Bytes dup = Cat({U64(2), Str("f"), B({1}), U32(10), Str("f"), B({2}), U32(20)});
  EXPECT_EQ(Decode<SymbolMap>(dup), (SymbolMap{{"f", SymbolAddr{1, 10}}}));
  EXPECT_EQ(Decode<SymbolMap>(U64(0)), SymbolMap());
  for (uint64_t n : {2ull, 0xFFFFFFFFull, (1ull << 62) + 3, ~0ull}) {
    EXPECT_FALSE(Decode<SymbolMap>(Cat({U64(n), Str("f"), B({1}), U32(10)}))) << n;
  }
  EXPECT_FALSE(Decode<SymbolMap>(Bytes(7, 0)));
  EXPECT_FALSE(Decode<SymbolMap>(Bytes()));
}

TEST(SourceMapCodecTest, EmptyAndShortPayloads) {
  EXPECT_EQ(Decode<SourceMap>(Bytes(8, 0)), SourceMap());
  EXPECT_FALSE(Decode<SourceMap>(Bytes(7, 0)));
  EXPECT_FALSE(Decode<SourceMap>(Bytes()));
  EXPECT_EQ(Encode(SourceMap()), Bytes(8, 0));
}

TEST(SourceMapCodecTest, RoundTripAndTruncations) {
  const SourceMap m{{"a.zc", {"line 1", "line 2"}}, {"b.zc", {}}};
  const Bytes wire = Encode(m);
  EXPECT_EQ(wire.size(), 8u + (8 + 4 + 8 + 14 + 14) + (8 + 4 + 8));
  EXPECT_EQ(Decode<SourceMap>(wire), m);
  ExpectEveryTruncationFails<SourceMap>(wire);
  const Bytes one = Cat({U64(1), Str("k"), U64(2), Str("x"), Str("")});
  EXPECT_EQ(Encode(SourceMap{{"k", {"x", ""}}}), one);
}

TEST(PmSizeAndVerifyInfoCodecTest, ScalarAndStringPayloads) {
  size_t left = 0;
  EXPECT_EQ(Decode<uint32_t>(B({0, 0x10, 0, 0}), &left), 4096u);
  EXPECT_EQ(Decode<uint32_t>(B({0, 0x10, 0, 0, 9, 9, 9, 9}), &left), 4096u);
  EXPECT_EQ(left, 4u);
  EXPECT_FALSE(Decode<uint32_t>(B({0, 0x10, 0})));
  EXPECT_EQ(Encode(uint32_t{4096}), B({0, 0x10, 0, 0}));
  EXPECT_EQ(Decode<std::string>(Bytes(8, 0)), std::string());
  EXPECT_EQ(Decode<std::string>(Cat({Str("ok"), B({1, 2})})), std::string("ok"));
  EXPECT_FALSE(Decode<std::string>(Cat({U64(3), B({'o', 'k'})})));
}

// A refused payload says where decoding stopped: the element of a list that
// runs to the end, the map entry, the count the rest cannot hold, or the
// value it could not read.
TEST(PayloadRefusalTest, SaysWhereDecodingStopped) {
  struct Row {
    const char* payload;
    std::function<absl::Status(const Bytes&)> decode;
    Bytes bytes;
    std::string reason;
  };
  const auto as = [](auto value) {
    using T = decltype(value);
    return [](const Bytes& b) { return debuginfo::decodePayload<T>(absl::MakeConstSpan(b)).status(); };
  };
  const Row rows[] = {
      {"id", as(DebugInfoID()), Bytes(), "payload is empty"},
      {"id", as(DebugInfoID()), B({1, 2, 0, 3}), "payload of 4 bytes ends inside a value at offset 3"},
      {"swp", as(SWPInfo()), Bytes(6, 0), "payload of 6 bytes ends inside an element at offset 4"},
      {"cfg", as(ControlFlowGraph()), Bytes(17, 0),
       "payload of 17 bytes ends inside an element at offset 16"},
      {"latency", as(LatencyInfo()), Bytes(10, 0),
       "payload of 10 bytes ends inside an element at offset 9"},
      {"spill", as(SpillInfo()), Cat({Bytes(14, 0), U32(1), B({0, 0}), U64(9), B({'x'})}),
       "payload of 29 bytes ends inside an element at offset 14"},
      {"src", as(SourceMap()), Bytes(7, 0), "payload of 7 bytes ends inside a value at offset 0"},
      {"src", as(SourceMap()), U64(2), "payload of 8 bytes cannot hold what the count claims at offset 0"},
      {"src", as(SourceMap()), Cat({U64(1), Str("a"), U64(3), Str("x")}),
       "payload of 34 bytes cannot hold what the count claims at offset 17"},
      {"sym", as(SymbolMap()), Cat({U64(2), Str("main"), B({2, 0, 1, 0, 0}), Str("x"), B({1})}),
       "payload of 35 bytes ends inside an entry at offset 25"},
      {"pmsize", as(uint32_t()), B({0, 0x10, 0}), "payload of 3 bytes ends inside a value at offset 0"},
      {"verifyinfo", as(std::string()), Cat({U64(3), B({'o', 'k'})}),
       "payload of 10 bytes ends inside a value at offset 0"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(std::string(row.decode(row.bytes).message()), row.reason) << row.payload;
  }
}

}  // namespace
}  // namespace zelk_elf
