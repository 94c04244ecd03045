// The payloads of the nine ".zelk.dbg." sections: each row is bytes and
// what they decode to, or the reason they are refused.
#include "debuginfo/payload.h"

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "absl/hash/hash.h"
#include "debuginfo/codecs.h"
#include "gtest/gtest.h"
#include "support/test_support.h"
#include "support/wire.h"
#include "zelk_elf/debug_info.h"

namespace zelk_elf {
namespace {

using namespace zelk_test;
using testing::crowdedKeys;

struct Row {
  const char* payload;
  std::function<void()> check;
};

// `bytes` decode to `value`; when `exact`, `value` also encodes to `bytes`.
template <typename T>
Row decodes(const char* payload, Bytes bytes, T value, bool exact = true) {
  return {payload, [=] {
            const auto decoded = debuginfo::decodePayload<T>(absl::MakeConstSpan(bytes));
            EXPECT_TRUE(decoded.ok() && *decoded == value) << decoded.status();
            EXPECT_TRUE(!exact || debuginfo::encodePayload(value) == bytes);
          }};
}

template <typename T>
Row refuses(const char* payload, Bytes bytes, std::string reason) {
  return {payload, [=] {
            EXPECT_EQ(debuginfo::decodePayload<T>(absl::MakeConstSpan(bytes)).status().message(),
                      reason);
          }};
}

BasicBlockRange R(uint32_t a, uint32_t b) { return {a, b}; }

std::string ends(int size, const char* inside, int at) {
  return "payload of " + std::to_string(size) + " bytes ends inside " + inside + " at offset " +
         std::to_string(at);
}

// A symbol map payload of `keys` in order, each at the address of its place.
Bytes symbols(const std::vector<std::string>& keys) {
  Bytes out = U64(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) out = Cat({out, Str(keys[i]), B({1}), U32(i)});
  return out;
}

TEST(PayloadTest, EveryKind) {
  // 33 distinct keys in one bucket are one too many; a key repeated into a
  // full bucket is still just a repeat.
  std::vector<std::string> crowded = crowdedKeys(33), full = crowdedKeys(33);
  full.back() = full.front();
  SymbolMap first32;
  for (size_t i = 0; i < 32; ++i) first32[full[i]] = {1, static_cast<uint32_t>(i)};
  const Bytes flood = symbols(crowded);
  const size_t last_entry = flood.size() - Str(crowded.back()).size() - 5;
  const Row rows[] = {
      refuses<SymbolMap>("sym, keys built to collide", flood,
                         "payload of " + std::to_string(flood.size()) +
                             " bytes has more than 32 map keys in one hash bucket (keys built to "
                             "collide) at offset " + std::to_string(last_entry)),
      decodes("sym, a repeat in a full bucket", symbols(full), first32, false),
      decodes("id", B({1, 2, 0, 3, 0}), DebugInfoID{1, 2, 3}),
      decodes("id", B({0xFF, 0xEF, 0xBE, 0x34, 0x12}), DebugInfoID{0xFF, 0xBEEF, 0x1234}),
      decodes("id, a byte after it", B({1, 2, 0, 3, 0, 0xFF}), DebugInfoID{1, 2, 3}, false),
      refuses<DebugInfoID>("id", {}, "payload is empty"),
      refuses<DebugInfoID>("id", B({1, 2, 0, 3}), ends(4, "a value", 3)),
      decodes("spill", B({0x10, 0, 0, 0, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 'x'}),
              SpillInfo{{{16, 2, 1, "x"}}}),
      decodes("spill, kind 7 and a NUL in a name",
              Cat({U32(1), B({0, 7}), U64(0), U32(0xFFFFFFFF), B({255, 5}),
                   Str(std::string("a\0b", 3))}),
              SpillInfo{{{1, 0, 7, ""}, {0xFFFFFFFF, 255, 5, std::string("a\0b", 3)}}}),
      decodes("spill, empty", {}, SpillInfo()),
      refuses<SpillInfo>("spill", Cat({Bytes(14, 0), U32(1), B({0, 0}), U64(9), B({'x'})}),
                         ends(29, "an element", 14)),
      refuses<SpillInfo>("spill", B({0x10, 0, 0, 0, 2}), ends(5, "an element", 0)),
      decodes("swp", B({1, 0, 0, 0, 2, 0, 0, 0}), SWPInfo{{{1}, {2}}}),
      decodes("swp, empty", {}, SWPInfo()),
      refuses<SWPInfo>("swp", Bytes(6, 0), ends(6, "an element", 4)),
      decodes("cfg", Cat({U32(1), U32(2), U32(3), U32(4)}),
              ControlFlowGraph{{std::make_tuple(R(1, 2), R(3, 4))}}),
      decodes("cfg, repeats", Cat({U32(5), U32(5), U32(0), U32(1), U32(5), U32(5), U32(0), U32(1)}),
              ControlFlowGraph{{{R(5, 5), R(0, 1)}, {R(5, 5), R(0, 1)}}}),
      refuses<ControlFlowGraph>("cfg", Bytes(17, 0), ends(17, "an element", 16)),
      decodes("latency", Cat({U32(0x01020304), B({5, 6, 7, 8, 9})}),
              LatencyInfo{{{0x01020304, 5, 6, 7, 8, 9}}}),
      refuses<LatencyInfo>("latency", Bytes(10, 0), ends(10, "an element", 9)),
      refuses<LatencyInfo>("latency", B({8, 0, 0, 0, 1}), ends(5, "an element", 0)),
      decodes("src", Cat({U64(1), Str("a.zc"), U64(2), Str("x = 1"), Str("")}),
              SourceMap{{"a.zc", {"x = 1", ""}}}),
      decodes("src, empty", U64(0), SourceMap()),
      decodes("src, a repeated key keeps its first list",
              Cat({U64(2), Str("k"), U64(1), Str("1"), Str("k"), U64(0)}), SourceMap{{"k", {"1"}}},
              false),
      refuses<SourceMap>("src", Bytes(7, 0), ends(7, "a value", 0)),
      refuses<SourceMap>("src", Bytes(5, 0), ends(5, "a value", 0)),
      refuses<SourceMap>("src", U64(2),
                         "payload of 8 bytes cannot hold what the count claims at offset 0"),
      refuses<SourceMap>("src", Cat({U64(1), Str("a"), U64(3), Str("x")}),
                         "payload of 34 bytes cannot hold what the count claims at offset 17"),
      decodes("sym", Cat({U64(1), Str("main"), B({2, 0, 1, 0, 0})}), SymbolMap{{"main", {2, 256}}}),
      refuses<SymbolMap>("sym", {}, "payload is empty"),
      refuses<SymbolMap>("sym", Cat({U64(2), Str("main"), B({2, 0, 1, 0, 0}), Str("x"), B({1})}),
                         ends(35, "an entry", 25)),
      decodes("pmsize", B({0, 0x10, 0, 0}), uint32_t{4096}),
      decodes("pmsize, bytes after it", B({0x40, 0, 0, 0, 1, 2, 3, 4}), uint32_t{64}, false),
      refuses<uint32_t>("pmsize", B({0, 0x10, 0}), ends(3, "a value", 0)),
      decodes("verifyinfo", Str("ok"), std::string("ok")),
      decodes("verifyinfo, empty", U64(0), std::string()),
      refuses<std::string>("verifyinfo", Cat({U64(3), B({'o', 'k'})}), ends(10, "a value", 0)),
      refuses<std::string>("verifyinfo", Bytes(7, 0), ends(7, "a value", 0)),
      refuses<std::string>("verifyinfo", B({2, 0, 0, 0, 0}), ends(5, "a value", 0)),
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.payload);
    row.check();
  }
}

// hash() is absl::Hash of the fields in order, each as its own type.
TEST(PayloadTest, RecordsHashByTheirFields) {
  EXPECT_EQ((DebugInfoID{1, 2, 3}).hash(), absl::HashOf(uint8_t{1}, uint16_t{2}, uint16_t{3}));
  EXPECT_EQ(R(4, 5).hash(), absl::HashOf(uint32_t{4}, uint32_t{5}));
}

}  // namespace
}  // namespace zelk_elf
