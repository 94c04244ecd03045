// Loading allocates within a small multiple of the input, whatever the
// headers claim. This binary replaces the global operator new to count.
#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "engine/image.h"
#include "engine_test_util.h"
#include "gtest/gtest.h"

namespace {
std::atomic<size_t> g_allocated{0};
}  // namespace

void* operator new(size_t n) {
  g_allocated += n;
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

namespace zelk_elf {
namespace engine {
namespace {

using namespace testing_util;

// Bytes allocated while loading `bytes` (the load's result is ignored).
size_t allocatedByLoad(const Bytes& bytes) {
  Image image;
  const size_t before = g_allocated.load();
  image.load(bytes).ok();
  return g_allocated.load() - before;
}

Bytes header64() {
  Bytes b(64, 0);
  const uint8_t ident[] = {0x7F, 'E', 'L', 'F', 2, 1, 1};
  std::copy(std::begin(ident), std::end(ident), b.begin());
  b[52] = 64;  // e_ehsize
  b[54] = 56;  // e_phentsize
  b[58] = 64;  // e_shentsize
  return b;
}

void put16(Bytes& b, size_t at, uint16_t v) {
  b[at] = v & 0xFF;
  b[at + 1] = v >> 8;
}

// A table cut short still gives every entry it counts, so a tiny file can
// claim 65535 sections; each costs one small record, never a copy of input.
TEST(AllocationTest, TinyFileClaimingManySectionsAllocatesABoundedAmount) {
  constexpr size_t kPerEntry = 200;
  Bytes b = header64();
  b.resize(100);
  put16(b, 60, 0xFFFF);  // e_shnum
  b[40] = 64;            // e_shoff
  Image image;
  const size_t before = g_allocated.load();
  ASSERT_TRUE(image.load(b).ok());
  EXPECT_EQ(image.sections().size(), 0xFFFFu);
  EXPECT_LE(g_allocated.load() - before, 0xFFFF * kPerEntry + 4096);
}

TEST(AllocationTest, OverlappingSectionsShareOneCopy) {
  // 65535 section headers that each claim the whole file.
  Bytes b = header64();
  b[40] = 64;  // e_shoff
  put16(b, 60, 0xFFFF);
  b.resize(64 + 64 * 0xFFFF, 0);
  for (size_t i = 0; i < 0xFFFF; ++i) {
    uint8_t* e = b.data() + 64 + 64 * i;
    e[4] = 1;                                // SHT_PROGBITS
    for (int k = 32; k < 40; ++k) e[k] = 0xFF;  // sh_size: everything
  }
  const size_t allocated = allocatedByLoad(b);
  EXPECT_LT(allocated, 8 * b.size()) << allocated << " for " << b.size();
}

TEST(AllocationTest, HostileCorpusStaysWithinAMultiple) {
  for (const char* name :
       {"crash-060833f08dc14d1712428742b3cad7af17b36bb7",
        "crash-7d695153fd8052529d480c2352d4ada33a44bada",
        "crash-b82f05b0b25c8fdc98480e6d76b6d5f9164ae2bc",
        "crash-e1ce7cecf01cf800397a4302854d9d76fa19763c",
        "crash-e3c41070342cf84dea077356ddbb8ebf4326a601", "crash.elf"}) {
    auto bytes = readFile(sharedDir() + "/corpus/hostile/" + name);
    ASSERT_TRUE(bytes) << name;
    EXPECT_LT(allocatedByLoad(*bytes), 8 * bytes->size() + 65536) << name;
  }
}

}  // namespace
}  // namespace engine
}  // namespace zelk_elf
