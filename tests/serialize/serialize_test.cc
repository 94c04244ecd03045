// The wire rules of scalars, strings and containers, the result type, the
// owned byte buffer and the bounds-checked byte view.
#include <string>
#include <unordered_map>
#include <vector>

#include "gtest/gtest.h"
#include "serialize/byte_view.h"
#include "serialize/result.h"
#include "support/wire.h"
#include "zelk_elf/fixed_vector.h"

namespace zelk_test {
namespace {

using Strings = std::vector<std::string>;
using Map = std::unordered_map<std::string, Strings>;

TEST(WireTest, ValuesAndTheirBytes) {
  EXPECT_EQ(Encode(uint8_t{0xAB}), B({0xAB}));
  EXPECT_EQ(Encode(uint16_t{258}), B({2, 1}));
  EXPECT_EQ(Encode(uint32_t{1}), B({1, 0, 0, 0}));
  EXPECT_EQ(Encode(uint64_t{0x0102030405060708}), B({8, 7, 6, 5, 4, 3, 2, 1}));
  EXPECT_EQ(Encode(std::string("ab")), Cat({U64(2), B({'a', 'b'})}));
  EXPECT_EQ(Encode(std::string()), U64(0));
  EXPECT_EQ(Encode(std::string("a\0b", 3)), Cat({U64(3), B({'a', 0, 'b'})}));
  EXPECT_EQ(Encode(Strings{"x", ""}), Cat({U64(2), Str("x"), Str("")}));
  EXPECT_EQ(Encode(Map{{"k", {"v"}}}), Cat({U64(1), Str("k"), U64(1), Str("v")}));
  // Decoding what was encoded gives the value back, bytes after it unread.
  size_t left = 0;
  EXPECT_EQ(Decode<uint16_t>(B({2, 1, 9}), &left), uint16_t{258});
  EXPECT_EQ(left, 1u);
  EXPECT_EQ(Decode<uint64_t>(U64(0x0102030405060708)), uint64_t{0x0102030405060708});
  EXPECT_EQ(Decode<std::string>(Str(std::string("a\0b", 3))), std::string("a\0b", 3));
  EXPECT_EQ(Decode<Strings>(Encode(Strings{"x", "", "yz"})), (Strings{"x", "", "yz"}));
  const Map map{{"a", {"1", "2"}}, {"b", {}}};
  EXPECT_EQ(Decode<Map>(Encode(map)), map);
}

// A decode that cannot complete is an error and leaves the reader at its end.
TEST(WireTest, RefusalsLeaveTheReaderAtItsEnd) {
  struct Row {
    const char* input;
    bool (*refused)(const Bytes&, size_t*);
    Bytes bytes;
  };
  const Row rows[] = {
      {"u8 of nothing", [](const Bytes& b, size_t* l) { return !Decode<uint8_t>(b, l); }, {}},
      {"u32 of 3 bytes", [](const Bytes& b, size_t* l) { return !Decode<uint32_t>(b, l); },
       B({1, 2, 3})},
      {"string longer than what remains",
       [](const Bytes& b, size_t* l) { return !Decode<std::string>(b, l); },
       Cat({U64(8), B({1, 2, 3})})},
      {"string length cut", [](const Bytes& b, size_t* l) { return !Decode<std::string>(b, l); },
       B({1, 0, 0})},
      {"list count beyond the input",
       [](const Bytes& b, size_t* l) { return !Decode<Strings>(b, l); },
       Cat({U64(3), Str("a"), Str("b")})},
      {"hostile list count", [](const Bytes& b, size_t* l) { return !Decode<Strings>(b, l); },
       Cat({U64(uint64_t{1} << 40), Str("a")})},
      {"map value cut", [](const Bytes& b, size_t* l) { return !Decode<Map>(b, l); },
       Cat({U64(1), Str("k"), U64(2), Str("v")})},
  };
  for (const Row& row : rows) {
    size_t left = 99;
    EXPECT_TRUE(row.refused(row.bytes, &left)) << row.input;
    EXPECT_EQ(left, 0u) << row.input;
  }
}

TEST(WireTest, ContainerRules) {
  // A repeated key keeps its first value; a count of 0 reads nothing more.
  EXPECT_EQ(Decode<Map>(Cat({U64(2), Str("k"), U64(1), Str("1"), Str("k"), U64(0)})),
            (Map{{"k", {"1"}}}));
  size_t left = 0;
  EXPECT_EQ(Decode<Map>(Cat({U64(0), B({7, 7})}), &left), Map());
  EXPECT_EQ(left, 2u);
  // Where sizes have 32 bits, a count keeps only its low 32 bits.
  const auto counted = Decode<Strings>(Cat({U64((uint64_t{1} << 32) + 1), Str("x")}));
  if (sizeof(size_t) == 4) {
    EXPECT_EQ(counted, (Strings{"x"}));
  } else {
    EXPECT_FALSE(counted);
  }
  // A list that runs to the end: nothing is an empty list, a short tail is
  // refused, elements go back to back.
  const auto to_end = [](const Bytes& b) {
    tolva_lib::io::MemReader r(b.data(), b.size());
    Dec d(r);
    auto res = tolva_lib::serialize::decodeToEnd<uint32_t>(d);
    return res.isOk() ? absl::optional<std::vector<uint32_t>>(res.getOk()) : absl::nullopt;
  };
  EXPECT_EQ(to_end({}), std::vector<uint32_t>());
  EXPECT_EQ(to_end(B({1, 0, 0, 0, 2, 0, 0, 0})), (std::vector<uint32_t>{1, 2}));
  EXPECT_FALSE(to_end(B({1, 0, 0, 0, 2})));
  Bytes out;
  tolva_lib::io::MemWriter w(out);
  Enc e(w);
  tolva_lib::serialize::putEach(std::vector<uint32_t>{1, 0x0A0B0C0D}, e);
  EXPECT_EQ(out, B({1, 0, 0, 0, 0x0D, 0x0C, 0x0B, 0x0A}));
}

TEST(ResultTest, HoldsOneAlternative) {
  tolva_lib::Result<int, std::string> ok(5), err(std::string("no"));
  EXPECT_TRUE(ok.isOk());
  EXPECT_FALSE(ok.isErr());
  EXPECT_EQ(ok.getOk(), 5);
  EXPECT_TRUE(err.isErr());
  EXPECT_FALSE(err.isOk());
  EXPECT_EQ(std::move(err).getErr(), "no");
  EXPECT_DEATH(ok.getErr(), "");
  EXPECT_DEATH(err.getOk(), "");
}

TEST(FixedVectorTest, OwnsACopyAndHandsItOver) {
  using Buffer = tolva_lib::FixedVector<uint8_t, tolva_lib::mem::SystemAllocator>;
  const Buffer none(nullptr, 0);
  EXPECT_EQ(none.data(), nullptr);
  EXPECT_EQ(none.size(), 0u);
  uint8_t source[3] = {1, 2, 3};
  Buffer copy(source, 3);
  source[0] = 9;
  EXPECT_EQ(Bytes(copy.begin(), copy.end()), B({1, 2, 3}));
  Buffer moved(std::move(copy));
  EXPECT_EQ(copy.data(), nullptr);
  EXPECT_EQ(copy.size(), 0u);
  const auto released = moved.release();
  EXPECT_EQ(moved.data(), nullptr);
  EXPECT_EQ(released.second, 3u);
  EXPECT_EQ(released.first[2], 3);
  std::free(released.first);
}

TEST(ByteViewTest, NothingOutsideIsEverHandedOut) {
  const uint8_t bytes[10] = {};
  const tolva_lib::io::ByteView view(bytes, sizeof bytes);
  EXPECT_EQ(view.slice(2, 8)->data(), bytes + 2);
  EXPECT_EQ(view.slice(10, 0)->size(), 0u);
  EXPECT_FALSE(view.slice(3, 8));
  EXPECT_FALSE(view.slice(~uint64_t{0}, 2));  // the end would wrap
  EXPECT_EQ(view.from(4).size(), 6u);
  EXPECT_TRUE(view.from(10).empty());
  EXPECT_EQ((*view.table(0, 3, 4, 2))[2].data(), bytes + 8);
  EXPECT_FALSE(view.table(0, 3, 4, 4));                  // the last record passes the end
  EXPECT_FALSE(view.table(0, 2, 1, 2));                  // records would overlap
  EXPECT_FALSE(view.table(2, uint64_t{1} << 62, 8, 1));  // the offset wraps
  EXPECT_EQ(view.table(99, 0, 4, 4)->size(), 0u);
  EXPECT_FALSE(tolva_lib::io::ByteView::entryOffset(8, ~uint64_t{0} / 8, 9));
}

}  // namespace
}  // namespace zelk_test
