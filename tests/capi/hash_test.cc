// The exported hash() members agree with absl::Hash of the fields.
#include "absl/hash/hash.h"
#include "gtest/gtest.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace {

TEST(HashTest, DebugInfoIdHashesItsFields) {
  for (const DebugInfoID& id :
       {DebugInfoID{0, 0, 0}, DebugInfoID{1, 7, 65535}, DebugInfoID{255, 1, 2}}) {
    EXPECT_EQ(id.hash(), absl::HashOf(id.kind, id.id0, id.id1));
  }
  EXPECT_NE((DebugInfoID{1, 2, 3}.hash()), (DebugInfoID{1, 3, 2}.hash()));
}

TEST(HashTest, BasicBlockRangeHashesItsFields) {
  for (const BasicBlockRange& range :
       {BasicBlockRange{0, 0}, BasicBlockRange{1, 2}, BasicBlockRange{~0u, 5}}) {
    EXPECT_EQ(range.hash(), absl::HashOf(range.start, range.end));
  }
  EXPECT_NE((BasicBlockRange{1, 2}.hash()), (BasicBlockRange{2, 1}.hash()));
}

}  // namespace
}  // namespace zelk_elf
