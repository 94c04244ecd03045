// What the payload table cannot show: where a refused decode leaves the
// reader, counts on 32-bit targets, and the bounds of the byte view.
#include <string>
#include <vector>

#include "absl/types/optional.h"
#include "gtest/gtest.h"
#include "serialize/byte_view.h"
#include "serialize/containers.h"
#include "serialize/decoder.h"
#include "serialize/mem_reader.h"
#include "serialize/result.h"
#include "support/wire.h"

namespace zelk_test {
namespace {

// The decoded value, or nothing; `left` receives the bytes left unread.
template <typename T>
absl::optional<T> Decode(const Bytes& in, size_t* left = nullptr) {
  tolva_lib::io::MemReader reader(in.data(), in.size());
  tolva_lib::serialize::binary::Decoder<tolva_lib::io::MemReader> decoder(reader);
  auto result = tolva_lib::serialize::Decodable<T>::decode(decoder);
  if (left != nullptr) *left = reader.remaining();
  return result.isOk() ? absl::optional<T>(std::move(result).getOk()) : absl::nullopt;
}

using Strings = std::vector<std::string>;

// A decode that cannot complete is an error and leaves the reader at its end.
TEST(WireTest, RefusalsLeaveTheReaderAtItsEnd) {
  const std::pair<bool (*)(const Bytes&, size_t*), Bytes> rows[] = {
      {[](const Bytes& b, size_t* l) { return !Decode<uint8_t>(b, l); }, {}},
      {[](const Bytes& b, size_t* l) { return !Decode<uint32_t>(b, l); }, B({1, 2, 3})},
      {[](const Bytes& b, size_t* l) { return !Decode<std::string>(b, l); }, Cat({U64(8), B({1})})},
      {[](const Bytes& b, size_t* l) { return !Decode<std::string>(b, l); }, B({1, 0, 0})},
      {[](const Bytes& b, size_t* l) { return !Decode<Strings>(b, l); }, Cat({U64(3), Str("a")})},
      {[](const Bytes& b, size_t* l) { return !Decode<Strings>(b, l); }, U64(~uint64_t{0})},
  };
  for (const auto& row : rows) {
    size_t left = 99;
    EXPECT_TRUE(row.first(row.second, &left) && left == 0) << row.second.size() << " bytes";
  }
  size_t left = 0;  // a value leaves what follows it
  EXPECT_EQ(Decode<uint16_t>(B({2, 1, 9}), &left), uint16_t{258});
  EXPECT_EQ(left, 1u);
  // Where sizes have 32 bits, a count keeps only its low 32 bits.
  const auto counted = Decode<Strings>(Cat({U64((uint64_t{1} << 32) + 1), Str("x")}));
  EXPECT_EQ(counted, sizeof(size_t) == 4 ? absl::optional<Strings>(Strings{"x"}) : absl::nullopt);
}

// Each accessor gives the alternative it names, const or not, moved or not;
// taking the other one ends the process.
TEST(ResultTest, AccessorsGiveTheirAlternative) {
  using R = tolva_lib::Result<int, std::string>;
  R ok(5), err(std::string("e"));
  const R& const_ok = ok;
  const R& const_err = err;
  EXPECT_TRUE(ok.isOk() && !ok.isErr() && err.isErr() && !err.isOk());
  EXPECT_EQ(ok.getOk() + const_ok.getOk() + R(6).getOk(), 16);
  EXPECT_EQ(err.getErr() + const_err.getErr() + R(std::string("f")).getErr(), "eef");
  EXPECT_DEATH(const_ok.getErr(), "");
  EXPECT_DEATH(const_err.getOk(), "");
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
  EXPECT_EQ(tolva_lib::io::ByteView::entryOffset(7, 1, ~uint64_t{0} - 7), ~uint64_t{0});
}

}  // namespace
}  // namespace zelk_test
