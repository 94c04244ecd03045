#include "serialize/result.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "gtest/gtest.h"
#include "serialize/decoder.h"
#include "serialize/encoder.h"
#include "serialize/mem_reader.h"
#include "serialize/mem_writer.h"
#include "serialize/traits.h"
#include "zelk_elf/fixed_vector.h"

namespace {

using tolva_lib::Result;
struct Err {};

TEST(ResultTest, HoldsExactlyOneAlternative) {
  Result<int, Err> ok(7);
  EXPECT_TRUE(ok.isOk());
  EXPECT_FALSE(ok.isErr());
  EXPECT_EQ(ok.getOk(), 7);

  Result<int, Err> err(Err{});
  EXPECT_FALSE(err.isOk());
  EXPECT_TRUE(err.isErr());
  (void)err.getErr();
}

TEST(ResultTest, GetOkReturnsAReferenceToTheHeldValue) {
  Result<std::string, Err> r(std::string("abc"));
  r.getOk() += "d";
  EXPECT_EQ(r.getOk(), "abcd");
}

TEST(ResultTest, MovingMovesTheHeldValue) {
  Result<std::vector<int>, Err> r(std::vector<int>{1, 2, 3});
  std::vector<int> taken = std::move(r).getOk();
  EXPECT_EQ(taken, (std::vector<int>{1, 2, 3}));

  Result<std::unique_ptr<int>, Err> p(std::make_unique<int>(5));
  Result<std::unique_ptr<int>, Err> q(std::move(p));
  ASSERT_TRUE(q.isOk());
  EXPECT_EQ(*q.getOk(), 5);
}

void TakeOkOfErr() {
  Result<int, Err> err(Err{});
  (void)err.getOk();
}
void TakeErrOfOk() {
  Result<int, Err> ok(1);
  (void)ok.getErr();
}

TEST(ResultDeathTest, WrongAlternativeTerminates) {
  EXPECT_DEATH(TakeOkOfErr(), "");
  EXPECT_DEATH(TakeErrOfOk(), "");
}

TEST(ResultTest, ReadU8FromEmptyInputIsErr) {
  tolva_lib::io::MemReader reader(nullptr, 0);
  tolva_lib::serialize::binary::Decoder<tolva_lib::io::MemReader> d(reader);
  auto r = d.readU8();
  EXPECT_FALSE(r.isOk());
  EXPECT_TRUE(r.isErr());
  (void)r.getErr();
}

TEST(ResultTest, EncodeResultsAreOk) {
  std::vector<uint8_t> out;
  tolva_lib::io::MemWriter w(out);
  tolva_lib::serialize::binary::Encoder<tolva_lib::io::MemWriter> e(w);
  auto r = tolva_lib::serialize::Encodable<std::string>::encode("x", e);
  EXPECT_TRUE(r.isOk());
}

// Counts calls so tests can see what the vector asks of its allocator.
struct CountingAllocator {
  static int allocations;
  static int deallocations;
  void* allocate(size_t n) const {
    ++allocations;
    return std::malloc(n);
  }
  void deallocate(void* p) const {
    ++deallocations;
    std::free(p);
  }
};
int CountingAllocator::allocations = 0;
int CountingAllocator::deallocations = 0;

using Bytes = tolva_lib::FixedVector<uint8_t, tolva_lib::mem::SystemAllocator>;
using Counted = tolva_lib::FixedVector<uint8_t, CountingAllocator>;

class FixedVectorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CountingAllocator::allocations = 0;
    CountingAllocator::deallocations = 0;
  }
};

TEST_F(FixedVectorTest, NullSourceAndZeroCountAllocatesNothing) {
  {
    Counted v(nullptr, 0);
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.size(), 0u);
    EXPECT_TRUE(v.empty());
    auto released = v.release();
    EXPECT_EQ(released.first, nullptr);
    EXPECT_EQ(released.second, 0u);
  }
  EXPECT_EQ(CountingAllocator::allocations, 0);
  EXPECT_EQ(CountingAllocator::deallocations, 0);
}

TEST_F(FixedVectorTest, KeepsItsOwnCopy) {
  std::vector<uint8_t> src = {1, 2, 3};
  Bytes v(src.data(), src.size());
  src[0] = 9;
  src.clear();
  src.shrink_to_fit();
  ASSERT_EQ(v.size(), 3u);
  EXPECT_EQ(v[0], 1);
  EXPECT_EQ(v[2], 3);
  EXPECT_EQ(std::vector<uint8_t>(v.begin(), v.end()), (std::vector<uint8_t>{1, 2, 3}));
}

TEST_F(FixedVectorTest, ReleaseHandsOverTheBuffer) {
  const uint8_t src[] = {4, 5};
  std::pair<uint8_t*, size_t> released;
  {
    Counted v(src, 2);
    EXPECT_EQ(CountingAllocator::allocations, 1);
    released = v.release();
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.size(), 0u);
  }
  EXPECT_EQ(CountingAllocator::deallocations, 0);  // destroying freed nothing
  ASSERT_NE(released.first, nullptr);
  EXPECT_EQ(released.second, 2u);
  EXPECT_EQ(released.first[1], 5);
  std::free(released.first);  // SystemAllocator-compatible
}

TEST_F(FixedVectorTest, MoveTransfersAndEmptiesTheSource) {
  const uint8_t src[] = {7, 8, 9};
  {
    Counted a(src, 3);
    const uint8_t* p = a.data();
    Counted b(std::move(a));
    EXPECT_EQ(a.data(), nullptr);
    EXPECT_EQ(a.size(), 0u);
    EXPECT_EQ(b.data(), p);
    EXPECT_EQ(b.size(), 3u);

    Counted c(src, 1);
    c = std::move(b);  // frees c's own buffer first
    EXPECT_EQ(CountingAllocator::deallocations, 1);
    EXPECT_EQ(c.data(), p);
    EXPECT_EQ(b.data(), nullptr);
  }
  EXPECT_EQ(CountingAllocator::allocations, 2);
  EXPECT_EQ(CountingAllocator::deallocations, 2);
}

#if !defined(__SANITIZE_ADDRESS__)
// AddressSanitizer aborts on impossible malloc sizes instead of returning null.
TEST_F(FixedVectorTest, SystemAllocatorThrowsWhenMallocFails) {
  volatile size_t huge = SIZE_MAX;  // hides the size from the optimiser
  tolva_lib::mem::SystemAllocator a;
  EXPECT_THROW(a.allocate(huge), std::bad_alloc);
  // The vector constructor lets it propagate without leaking.
  EXPECT_THROW(Bytes(reinterpret_cast<const uint8_t*>("x"), huge), std::bad_alloc);
}
#endif

}  // namespace
