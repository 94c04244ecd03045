#include "support/alloc_hook.h"

#include <cstdlib>
#include <new>

// The real allocator behind the --wrap'ed symbols (see CMakeLists.txt).
extern "C" {
void* __real_malloc(size_t size);
void __real_free(void* p);
}

namespace zelk_elf {
namespace testing {
namespace {

// Tests run on one thread: plain counters, no allocation, no locking.
int64_t g_live = 0;
uint64_t g_attempts = 0;
uint64_t g_bytes = 0;
uint64_t g_fail_at = 0;  // 0: not armed
FailMode g_mode = FailMode::kOnce;
bool g_fired = false;

// Counts one attempt; true when it has to fail.
bool shouldFail() {
  ++g_attempts;
  if (g_fail_at == 0) return false;
  const bool fail = g_mode == FailMode::kOnce ? g_attempts == g_fail_at : g_attempts >= g_fail_at;
  if (fail) g_fired = true;
  return fail;
}

void* countedMalloc(size_t size) {
  if (shouldFail()) return nullptr;
  void* p = __real_malloc(size == 0 ? 1 : size);
  if (p != nullptr) {
    ++g_live;
    g_bytes += size;
  }
  return p;
}

void countedFree(void* p) {
  if (p == nullptr) return;
  --g_live;
  __real_free(p);
}

void* newOrThrow(size_t size) {
  void* p = countedMalloc(size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

}  // namespace

int64_t liveBlocks() { return g_live; }

uint64_t bytesAllocated() { return g_bytes; }

void arm(uint64_t n, FailMode mode) {
  g_attempts = 0;
  g_fired = false;
  g_mode = mode;
  g_fail_at = n;
}

bool disarm() {
  g_fail_at = 0;
  return g_fired;
}

void warmUpFailurePath() {
  arm(1, FailMode::kOnce);
  try {
    void* p = ::operator new(16);
    ::operator delete(p);
  } catch (const std::bad_alloc&) {
  }
  disarm();
}

bool newHooked() {
  // Through a pointer, so no inlining bypasses a tool's redirection.
  void* (*volatile allocate)(size_t) = &::operator new;
  void (*volatile release)(void*) noexcept = &::operator delete;
  const uint64_t before = g_attempts;
  release(allocate(1));
  return g_attempts != before;
}

}  // namespace testing
}  // namespace zelk_elf

using zelk_elf::testing::countedFree;
using zelk_elf::testing::countedMalloc;
using zelk_elf::testing::newOrThrow;

// malloc and free as the library's and the tests' objects see them; nothing
// here calls the rest of the family, which therefore is not wrapped.
extern "C" {

void* __wrap_malloc(size_t size) { return countedMalloc(size); }

void __wrap_free(void* p) { countedFree(p); }

}  // extern "C"

// Every replaceable operator new and delete but the over-aligned, unused here.
void* operator new(size_t size) { return newOrThrow(size); }
void* operator new[](size_t size) { return newOrThrow(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return countedMalloc(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return countedMalloc(size); }

void operator delete(void* p) noexcept { countedFree(p); }
void operator delete[](void* p) noexcept { countedFree(p); }
void operator delete(void* p, size_t) noexcept { countedFree(p); }
void operator delete[](void* p, size_t) noexcept { countedFree(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { countedFree(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { countedFree(p); }
