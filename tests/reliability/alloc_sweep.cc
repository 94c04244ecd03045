#include "reliability/alloc_sweep.h"

#include <cstdio>

namespace zelk_elf {
namespace testing {
namespace {

// Prints the tally once all tests ran, for the record of each run.
class TallyReporter : public ::testing::Environment {
 public:
  void TearDown() override {
    const SweepTally& tally = sweepTally();
    std::printf("allocation-failure points swept: %llu, passed: %llu\n",
                static_cast<unsigned long long>(tally.swept),
                static_cast<unsigned long long>(tally.passed));
  }
};

const ::testing::Environment* const kReporter =
    ::testing::AddGlobalTestEnvironment(new TallyReporter);

}  // namespace

SweepTally& sweepTally() {
  static SweepTally tally;
  return tally;
}

}  // namespace testing
}  // namespace zelk_elf
