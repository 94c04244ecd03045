// Counting, failure-injecting allocation for the reliability tests.
//
// A test binary that links alloc_hook.cc replaces every form of the global
// operator new and delete, and (through the linker's --wrap) the malloc,
// calloc, realloc and free calls made by the library's objects and the test's
// own objects. Each allocation attempt counts; the hook can be armed to fail
// the Nth attempt (once, or that one and every later one), so a test can walk
// N upwards until an operation completes without meeting the failure. The
// live-block counter shows whether everything allocated was released.
#ifndef ZELK_ELF_TESTS_RELIABILITY_ALLOC_HOOK_H_
#define ZELK_ELF_TESTS_RELIABILITY_ALLOC_HOOK_H_

#include <cstddef>
#include <cstdint>

namespace zelk_elf {
namespace testing {

enum class FailMode {
  kOnce,        // only the Nth attempt fails
  kFromThenOn,  // the Nth attempt and all later ones fail
};

// Blocks currently allocated through the hooked functions.
int64_t liveBlocks();

// Allocation attempts since the last arm() or reset of the counters.
uint64_t attempts();

// Bytes handed out by every allocation so far (a running total: callers
// take differences around an operation).
uint64_t bytesAllocated();

// From now on, allocation attempt number `n` (1-based) fails as `mode` says.
void arm(uint64_t n, FailMode mode);

// Stops injecting failures; returns whether any attempt was failed since
// arm().
bool disarm();

// Makes the runtime do its one-time work of the failure path (the first
// exception thrown allocates), so that sweeps measure only the library.
void warmUpFailurePath();

// Whether operator new reaches the hook. Valgrind puts its own in place,
// so only the malloc family can be failed under it.
bool newHooked();

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_RELIABILITY_ALLOC_HOOK_H_
