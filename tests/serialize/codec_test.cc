// Wire rules of the scalar, string and container codecs, in exact bytes,
// including hostile counts and lengths.
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "gtest/gtest.h"
#include "serialize/codec_test_util.h"

// Counts heap bytes requested, so hostile counts can be shown to allocate
// nothing.
static size_t g_heap_bytes = 0;

void* operator new(size_t n) {
  g_heap_bytes += n;
  if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
  throw std::bad_alloc();
}
// GCC cannot see that this pair matches the replaced operator new.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

namespace {

using namespace zelk_test;

// Heap bytes requested while decoding `in` as T.
template <typename T>
size_t HeapBytesToDecode(const Bytes& in) {
  tolva_lib::io::MemReader r(in.data(), in.size());
  Dec d(r);
  const size_t before = g_heap_bytes;
  auto res = tolva_lib::serialize::Decodable<T>::decode(d);
  const size_t used = g_heap_bytes - before;
  EXPECT_TRUE(res.isErr());
  return used;
}
using tolva_lib::io::MemReader;
using tolva_lib::io::MemWriter;
using StrList = std::vector<std::string>;
using StrMap = std::unordered_map<std::string, StrList>;
using U32Map = std::unordered_map<std::string, uint32_t>;

TEST(MemReaderTest, ReadCopiesAtMostWhatRemains) {
  const Bytes in = B({1, 2, 3});
  MemReader r(in.data(), in.size());
  uint8_t buf[8] = {};
  EXPECT_EQ(r.read(buf, 2), 2u);
  EXPECT_EQ(r.remaining(), 1u);
  EXPECT_EQ(r.read(buf, 8), 1u);
  EXPECT_EQ(buf[0], 3);
  EXPECT_EQ(r.remaining(), 0u);
  EXPECT_EQ(r.read(buf, 4), 0u);
}

TEST(MemWriterTest, WriteAppends) {
  Bytes out = B({9});
  MemWriter w(out);
  const uint8_t src[] = {1, 2};
  w.write(src, 2);
  w.write(src, 0);
  EXPECT_EQ(out, B({9, 1, 2}));
}

TEST(EncoderTest, ScalarsAreLittleEndian) {
  Bytes out;
  MemWriter w(out);
  Enc e(w);
  e.writeU8(0xAB);
  e.writeU16(258);
  e.writeU32(1);
  e.writeU64(0x0102030405060708ull);
  EXPECT_EQ(out, B({0xAB, 0x02, 0x01, 0x01, 0, 0, 0, 0x08, 0x07, 0x06, 0x05,
                    0x04, 0x03, 0x02, 0x01}));
}

TEST(DecoderTest, ScalarsAreLittleEndian) {
  const Bytes in = B({0xAB, 0x02, 0x01, 0x01, 0, 0, 0, 0x08, 0x07, 0x06, 0x05,
                      0x04, 0x03, 0x02, 0x01, 0xFF});
  MemReader r(in.data(), in.size());
  Dec d(r);
  EXPECT_EQ(d.readU8().getOk(), 0xAB);
  EXPECT_EQ(d.readU16().getOk(), 258);
  EXPECT_EQ(d.readU32().getOk(), 1u);
  EXPECT_EQ(d.readU64().getOk(), 0x0102030405060708ull);
  EXPECT_EQ(d.remaining(), 1u);
}

TEST(DecoderTest, ShortFixedReadIsErrAndConsumesTheRest) {
  for (size_t width : {2u, 4u, 8u}) {
    for (size_t have = 0; have < width; ++have) {
      Bytes in(have, 0x11);
      MemReader r(in.data(), in.size());
      Dec d(r);
      bool ok = width == 2 ? d.readU16().isOk()
                : width == 4 ? d.readU32().isOk()
                             : d.readU64().isOk();
      EXPECT_FALSE(ok) << width << " " << have;
      EXPECT_EQ(r.remaining(), 0u);
    }
  }
  const Bytes three = B({1, 2, 3});
  MemReader r(three.data(), three.size());
  Dec d(r);
  EXPECT_TRUE(d.readU32().isErr());
  EXPECT_EQ(d.remaining(), 0u);
}

TEST(StringCodecTest, ExactBytes) {
  EXPECT_EQ(Encode(std::string("ab")), B({2, 0, 0, 0, 0, 0, 0, 0, 0x61, 0x62}));
  EXPECT_EQ(Encode(std::string()), Bytes(8, 0));
  const std::string with_nul("a\0b", 3);
  EXPECT_EQ(Encode(with_nul), Cat({U64(3), B({0x61, 0, 0x62})}));

  size_t left = 0;
  EXPECT_EQ(Decode<std::string>(B({2, 0, 0, 0, 0, 0, 0, 0, 0x61, 0x62, 0x63}), &left),
            std::string("ab"));
  EXPECT_EQ(left, 1u);
  EXPECT_EQ(Decode<std::string>(Bytes(8, 0)), std::string());
  EXPECT_EQ(Decode<std::string>(Cat({U64(3), B({0x61, 0, 0x62})})), with_nul);
}

TEST(StringCodecTest, LengthBeyondInputIsErrAndConsumesTheRest) {
  size_t left = 99;
  EXPECT_FALSE(Decode<std::string>(Cat({U64(8), B({1, 2, 3})}), &left));
  EXPECT_EQ(left, 0u);
  EXPECT_FALSE(Decode<std::string>(B({1, 0, 0, 0, 0, 0, 0}), &left));  // 7 bytes
  EXPECT_EQ(left, 0u);
  // Lengths are compared in full: neither the low 32 bits (1) nor a wrap to
  // a small size may let these through, on any target.
  for (uint64_t len : {(1ull << 32) + 1, (1ull << 32), (1ull << 62),
                       ~0ull, ~0ull - 7, 0xFFFFFFFFull}) {
    EXPECT_FALSE(Decode<std::string>(Cat({U64(len), B({0x61, 0x62})}), &left)) << len;
    EXPECT_EQ(left, 0u);
  }
}

TEST(StringCodecTest, EveryTruncationFails) {
  const Bytes full = Str("hello");
  for (size_t n = 0; n < full.size(); ++n) {
    EXPECT_FALSE(Decode<std::string>(Bytes(full.begin(), full.begin() + n))) << n;
  }
}

TEST(ListCodecTest, ExactBytesBothWays) {
  const StrList v = {"a", "", "bc"};
  const Bytes wire = Cat({U64(3), Str("a"), Str(""), Str("bc")});
  EXPECT_EQ(Encode(v), wire);
  EXPECT_EQ(Decode<StrList>(wire), v);
  EXPECT_EQ(Encode(StrList()), U64(0));
  size_t left = 0;
  EXPECT_EQ(Decode<StrList>(Cat({U64(0), B({5, 6})}), &left), StrList());
  EXPECT_EQ(left, 2u);
}

TEST(ListCodecTest, HostileCounts) {
  size_t left = 99;
  // More strings claimed than 8-byte lengths could fit: refused at once.
  EXPECT_FALSE(Decode<StrList>(Cat({U64(3), Str(""), Str("")}), &left));
  EXPECT_EQ(left, 0u);
  EXPECT_FALSE(Decode<StrList>(Cat({U64((1ull << 62) + (1u << 30)), Str("x")})));
  EXPECT_FALSE(Decode<StrList>(Cat({U64(~0ull), Str("x")})));
  // Enough bytes for the count, but an element is malformed.
  EXPECT_FALSE(Decode<StrList>(Cat({U64(2), Str("a"), U64(100), B({1})})));
  // Truncated count.
  EXPECT_FALSE(Decode<StrList>(B({1, 0, 0})));
}

TEST(ListCodecTest, CountsAbove32BitsUseTheLowBitsOn32BitTargets) {
  const Bytes wire = Cat({U64((1ull << 32) + 1), Str("one")});
  auto v = Decode<StrList>(wire);
  if (sizeof(size_t) == 4) {
    ASSERT_TRUE(v);
    EXPECT_EQ(*v, StrList{"one"});
  } else {
    EXPECT_FALSE(v);
  }
  // 2^32 exactly becomes 0 on a 32-bit target: an empty list.
  auto zero = Decode<StrList>(Cat({U64(1ull << 32), Str("x")}));
  EXPECT_EQ(zero.has_value(), sizeof(size_t) == 4);
}

TEST(ListCodecTest, EveryTruncationFails) {
  const Bytes full = Cat({U64(2), Str("ab"), Str("c")});
  for (size_t n = 0; n < full.size(); ++n) {
    EXPECT_FALSE(Decode<StrList>(Bytes(full.begin(), full.begin() + n))) << n;
  }
}

TEST(MapCodecTest, RoundTripsAsASet) {
  const StrMap m = {{"a.c", {"x", "y"}}, {"b.c", {}}, {"", {""}}};
  const Bytes wire = Encode(m);
  EXPECT_EQ(Bytes(wire.begin(), wire.begin() + 8), U64(3));
  EXPECT_EQ(wire.size(), 8 + (8 + 3 + 8 + 9 + 9) + (8 + 3 + 8) + (8 + 8 + 8));
  EXPECT_EQ(Decode<StrMap>(wire), m);
  EXPECT_EQ(Encode(StrMap()), U64(0));
}

TEST(MapCodecTest, ExactBytesOfOneEntry) {
  const Bytes wire = Cat({U64(1), Str("k"), U64(1), Str("v")});
  EXPECT_EQ(Encode(StrMap{{"k", {"v"}}}), wire);
  EXPECT_EQ(Decode<StrMap>(wire), (StrMap{{"k", {"v"}}}));
}

TEST(MapCodecTest, RepeatedKeyKeepsTheFirstValue) {
  const Bytes wire = Cat({U64(2), Str("k"), U64(1), Str("first"), Str("k"),
                          U64(1), Str("second")});
  EXPECT_EQ(Decode<StrMap>(wire), (StrMap{{"k", {"first"}}}));
  const Bytes scalar = Cat({U64(2), Str("k"), U32(1), Str("k"), U32(2)});
  EXPECT_EQ(Decode<U32Map>(scalar), (U32Map{{"k", 1}}));
}

TEST(MapCodecTest, ZeroCountLeavesTheRestUnread) {
  size_t left = 0;
  EXPECT_EQ(Decode<StrMap>(Cat({U64(0), B({1, 2, 3})}), &left), StrMap());
  EXPECT_EQ(left, 3u);
}

TEST(MapCodecTest, HostileCounts) {
  size_t left = 99;
  // About 2^62 entries in 16 bytes: refused before any reservation (the low
  // 32 bits, 2^30, are just as impossible).
  EXPECT_FALSE(Decode<StrMap>(Cat({U64((1ull << 62) + (1u << 30)), Bytes(16, 0)}), &left));
  EXPECT_EQ(left, 0u);
  // Exactly 2^62: refused where size_t has 64 bits; a count of 0 where it
  // has 32, which leaves the 16 bytes unread.
  auto exact = Decode<StrMap>(Cat({U64(1ull << 62), Bytes(16, 0)}), &left);
  if (sizeof(size_t) == 4) {
    EXPECT_EQ(exact, StrMap());
    EXPECT_EQ(left, 16u);
  } else {
    EXPECT_FALSE(exact);
    EXPECT_EQ(left, 0u);
  }
  EXPECT_FALSE(Decode<StrMap>(Cat({U64(~0ull), Bytes(16, 0)})));
  EXPECT_FALSE(Decode<StrMap>(Cat({U64(0xFFFFFFFFull), Bytes(16, 0)})));
  // One entry more than present.
  EXPECT_FALSE(Decode<StrMap>(Cat({U64(2), Str("k"), U64(0)})));
  // A value list that claims more strings than there are.
  EXPECT_FALSE(Decode<StrMap>(Cat({U64(1), Str("k"), U64(5), Str("v")})));
  // Short count.
  EXPECT_FALSE(Decode<StrMap>(B({0, 0, 0, 0, 0, 0, 0})));
  EXPECT_FALSE(Decode<StrMap>(Bytes()));
}

TEST(MapCodecTest, ImpossibleCountsAllocateNothing) {
  for (uint64_t n : {(1ull << 62) + (1u << 30), ~0ull, 0xFFFFFFFFull, 2ull}) {
    EXPECT_EQ(HeapBytesToDecode<StrMap>(Cat({U64(n), Bytes(16, 0)})), 0u) << n;
    EXPECT_EQ(HeapBytesToDecode<StrList>(Cat({U64(n), Bytes(8, 0)})), 0u) << n;
  }
  // A string length beyond the input is refused before its buffer exists.
  EXPECT_EQ(HeapBytesToDecode<std::string>(Cat({U64(1ull << 40), Bytes(64, 0)})), 0u);
}

TEST(MapCodecTest, CountsAbove32BitsUseTheLowBitsOn32BitTargets) {
  const Bytes wire = Cat({U64((1ull << 32) + 1), Str("k"), U64(0)});
  auto m = Decode<StrMap>(wire);
  if (sizeof(size_t) == 4) {
    ASSERT_TRUE(m);
    EXPECT_EQ(*m, (StrMap{{"k", {}}}));
  } else {
    EXPECT_FALSE(m);
  }
}

TEST(MapCodecTest, EveryTruncationFails) {
  const Bytes full = Cat({U64(2), Str("a"), U64(1), Str("x"), Str("b"), U64(0)});
  ASSERT_TRUE(Decode<StrMap>(full));
  for (size_t n = 0; n < full.size(); ++n) {
    EXPECT_FALSE(Decode<StrMap>(Bytes(full.begin(), full.begin() + n))) << n;
  }
}

// List to the end, with 4-byte elements.
absl::optional<std::vector<uint32_t>> DecodeU32s(const Bytes& in) {
  MemReader r(in.data(), in.size());
  Dec d(r);
  auto res = tolva_lib::serialize::decodeToEnd<uint32_t>(d);
  if (res.isErr()) return absl::nullopt;
  return res.getOk();
}

TEST(ListToEndTest, ReadsUntilNoByteRemains) {
  EXPECT_EQ(DecodeU32s(Bytes()), std::vector<uint32_t>());
  EXPECT_FALSE(DecodeU32s(B({1})));
  EXPECT_EQ(DecodeU32s(B({1, 0, 0, 0, 2, 0, 0, 0})), (std::vector<uint32_t>{1, 2}));
  EXPECT_FALSE(DecodeU32s(B({1, 0, 0, 0, 2, 0})));
}

TEST(ListToEndTest, WritesElementsBackToBack) {
  Bytes out;
  MemWriter w(out);
  Enc e(w);
  tolva_lib::serialize::putEach(std::vector<uint32_t>{1, 0x0A0B0C0D}, e);
  EXPECT_EQ(out, B({1, 0, 0, 0, 0x0D, 0x0C, 0x0B, 0x0A}));
  Bytes none;
  MemWriter w2(none);
  Enc e2(w2);
  tolva_lib::serialize::putEach(std::vector<uint32_t>{}, e2);
  EXPECT_TRUE(none.empty());
}

}  // namespace
