// Failing the Nth allocation of an operation for every N until it completes.
#ifndef ZELK_ELF_TESTS_RELIABILITY_ALLOC_SWEEP_H_
#define ZELK_ELF_TESTS_RELIABILITY_ALLOC_SWEEP_H_

#include <cstdint>
#include <ostream>
#include <string>

#include "gtest/gtest.h"
#include "reliability/alloc_hook.h"

namespace zelk_elf {
namespace testing {

// Failure points met by all sweeps of this binary, and those whose checks
// all held.
struct SweepTally {
  uint64_t swept = 0;
  uint64_t passed = 0;
};
SweepTally& sweepTally();

inline std::ostream& operator<<(std::ostream& os, FailMode mode) {
  return os << (mode == FailMode::kOnce ? "once" : "from-then-on");
}

// Runs one operation with allocation N failing, for N = 1, 2, ... until a
// run meets no failure (the last run then checks the full result).
//
// For each N: `setup()` builds the state (unhooked), `op(state)` runs with
// the failure armed and returns the outcome, `check(state, outcome, fired)`
// asserts the outcome (`fired`: whether the failure was met), then the state
// is destroyed and the live-block count must be back where it started.
// Returns the number of failure points swept.
template <typename Setup, typename Op, typename Check>
uint64_t sweepAllocations(FailMode mode, Setup setup, Op op, Check check) {
  // Far above any operation here; guards against a hook that never fires.
  constexpr uint64_t kMaxPoints = 200000;
  uint64_t points = 0;
  warmUpFailurePath();
  {
    // The first trace of a thread allocates gtest's trace stack for good.
    SCOPED_TRACE("warm-up");
  }
  for (uint64_t n = 1; n <= kMaxPoints; ++n) {
    const int64_t base = liveBlocks();
    bool fired = false;
    {
      auto state = setup();
      arm(n, mode);
      auto outcome = op(state);
      fired = disarm();
      SCOPED_TRACE(::testing::Message()
                   << "allocation " << n << " failing (" << mode << ")");
      check(state, outcome, fired);
    }
    // Recorded failures hold memory of their own; count leaks only in
    // otherwise clean steps.
    if (!::testing::Test::HasFailure()) {
      EXPECT_EQ(liveBlocks(), base) << "blocks leaked with allocation " << n
                                    << " failing (" << mode << ")";
    }
    if (!fired) return points;
    ++points;
    ++sweepTally().swept;
    // One broken point is enough to report; the rest would repeat it.
    if (::testing::Test::HasFailure()) return points;
    ++sweepTally().passed;
  }
  ADD_FAILURE() << "operation still allocating after " << kMaxPoints
                << " points";
  return points;
}

// Every operation swept here allocates; without the operator new hook
// (under valgrind) many run without a failure point, which is fine.
inline void expectSwept(uint64_t points) {
  if (newHooked()) {
    EXPECT_GT(points, 0u) << "the operation never allocated";
  }
}

// Both failure modes, for INSTANTIATE_TEST_SUITE_P, named Once and FromThenOn.
inline auto allFailModes() {
  return ::testing::Values(FailMode::kOnce, FailMode::kFromThenOn);
}
inline std::string failModeName(const ::testing::TestParamInfo<FailMode>& info) {
  return info.param == FailMode::kOnce ? "Once" : "FromThenOn";
}

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_RELIABILITY_ALLOC_SWEEP_H_
