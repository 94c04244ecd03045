// Counting, failure-injecting allocation: a test binary linking alloc_hook.cc
// hooks operator new and delete and (by the linker's --wrap) the malloc family.
#ifndef ZELK_ELF_TESTS_SUPPORT_ALLOC_HOOK_H_
#define ZELK_ELF_TESTS_SUPPORT_ALLOC_HOOK_H_

#include <cstddef>
#include <cstdint>

#include "gtest/gtest.h"

namespace zelk_elf {
namespace testing {

enum class FailMode {
  kOnce,        // only the Nth attempt fails
  kFromThenOn,  // the Nth attempt and all later ones fail
};

int64_t liveBlocks();       // blocks allocated and not yet released
uint64_t bytesAllocated();  // by every allocation so far
// From now on, allocation attempt `n` (from 1) fails as `mode` says.
void arm(uint64_t n, FailMode mode);
bool disarm();  // stops; returns whether an attempt was failed
// Does the runtime's one-time work of throwing, so sweeps see the library only.
void warmUpFailurePath();
// Whether operator new reaches the hook; valgrind puts its own in place.
bool newHooked();

// For N = 1, 2, ... until no failure is met, in both modes: `op(setup())` runs
// with allocation N failing, `check(state, outcome, failed)` asserts, and the
// state destroyed, nothing may be left allocated. Returns the points swept.
template <typename Setup, typename Op, typename Check>
uint64_t sweepAllocations(Setup setup, Op op, Check check) {
  constexpr uint64_t kMaxPoints = 200000;  // far above any operation here
  uint64_t points = 0;
  warmUpFailurePath();
  { SCOPED_TRACE("warm-up"); }  // the first trace allocates for good
  for (FailMode mode : {FailMode::kOnce, FailMode::kFromThenOn}) {
    for (uint64_t n = 1;; ++n) {
      if (n > kMaxPoints) {
        ADD_FAILURE() << "still allocating after " << kMaxPoints << " points";
        return points;
      }
      const int64_t base = liveBlocks();
      bool failed = false;
      {
        auto state = setup();
        arm(n, mode);
        auto outcome = op(state);
        failed = disarm();
        SCOPED_TRACE(::testing::Message() << "allocation " << n << " failing"
                                          << (mode == FailMode::kOnce ? " once" : " on"));
        check(state, outcome, failed);
      }
      if (::testing::Test::HasFailure()) return points;  // one report is enough
      EXPECT_EQ(liveBlocks(), base) << "blocks leaked with allocation " << n << " failing";
      if (!failed) break;
      ++points;
    }
  }
  return points;
}

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_SUPPORT_ALLOC_HOOK_H_
