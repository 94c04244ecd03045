// The exported hash() members equal absl::Hash of the fields in order.
#include <cstdint>
#include <tuple>

#include "absl/hash/hash.h"
#include "gtest/gtest.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace {

TEST(HashTest, DebugInfoIDEqualsAbslHashOfItsFields) {
  for (const DebugInfoID id : {DebugInfoID{0, 0, 0}, DebugInfoID{1, 2, 3},
                               DebugInfoID{0xFF, 0xFFFF, 0xFFFF}, DebugInfoID{7, 1, 0}}) {
    EXPECT_EQ(id.hash(), absl::HashOf(id.kind, id.id0, id.id1));
    using Fields = std::tuple<uint8_t, uint16_t, uint16_t>;
    const size_t tuple_hash = absl::Hash<Fields>{}(Fields(id.kind, id.id0, id.id1));
    EXPECT_EQ(id.hash(), tuple_hash);
  }
}

TEST(HashTest, BasicBlockRangeEqualsAbslHashOfItsFields) {
  for (const BasicBlockRange r : {BasicBlockRange{0, 0}, BasicBlockRange{1, 2},
                                  BasicBlockRange{5, 5}, BasicBlockRange{0xFFFFFFFF, 1}}) {
    EXPECT_EQ(r.hash(), absl::HashOf(r.start, r.end));
    using Fields = std::tuple<uint32_t, uint32_t>;
    const size_t tuple_hash = absl::Hash<Fields>{}(Fields(r.start, r.end));
    EXPECT_EQ(r.hash(), tuple_hash);
  }
}

TEST(HashTest, EqualFieldsHashEqualAndOrderMatters) {
  EXPECT_EQ((DebugInfoID{1, 2, 3}).hash(), (DebugInfoID{1, 2, 3}).hash());
  EXPECT_NE((DebugInfoID{1, 2, 3}).hash(), (DebugInfoID{1, 3, 2}).hash());
  EXPECT_EQ((BasicBlockRange{4, 9}).hash(), (BasicBlockRange{4, 9}).hash());
  EXPECT_NE((BasicBlockRange{4, 9}).hash(), (BasicBlockRange{9, 4}).hash());
}

}  // namespace
}  // namespace zelk_elf
