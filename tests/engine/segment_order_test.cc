// The order in which segments are laid out, against the queue it is defined
// by, over random segment tables.
#include <algorithm>
#include <deque>
#include <random>
#include <vector>

#include "engine/image.h"
#include "engine/layout.h"
#include "gtest/gtest.h"

namespace zelk_elf {
namespace engine {
namespace {

// The definition, step by step: offset-0 segments are pulled forward, then
// a segment is taken from the front of the queue and placed unless a segment
// still queued contains it, in which case it goes to the back.
std::vector<size_t> queueOrder(const Image& image) {
  const absl::Span<const Segment> g = image.segments();
  std::vector<size_t> w(g.size());
  for (size_t i = 0; i < w.size(); ++i) w[i] = i;
  size_t k = 0;
  for (size_t i = 0; i < w.size(); ++i) {
    if (i != k && g[w[i]].off_init && g[w[i]].header.offset == 0) {
      if (g[w[k]].header.offset == 0) ++k;
      std::swap(w[i], w[k]);
      ++k;
    }
  }
  const auto contained = [&](size_t s, size_t t) {
    const std::vector<uint16_t> ls = g[s].sections.toVector(), lt = g[t].sections.toVector();
    return ls.size() < lt.size() && std::includes(lt.begin(), lt.end(), ls.begin(), ls.end());
  };
  std::deque<size_t> queue(w.begin(), w.end());
  std::vector<size_t> order;
  while (!queue.empty()) {
    const size_t s = queue.front();
    queue.pop_front();
    if (std::any_of(queue.begin(), queue.end(), [&](size_t t) { return contained(s, t); })) {
      queue.push_back(s);
    } else {
      order.push_back(s);
    }
  }
  return order;
}

TEST(SegmentOrderTest, EqualsTheQueueOverRandomTables) {
  std::mt19937 random(20261123);
  const auto below = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
  for (int round = 0; round < 3000; ++round) {
    Image image;
    const uint32_t segments = 1 + below(9);
    for (uint32_t i = 0; i < segments; ++i) {
      Segment& g = image.addSegment();
      g.off_init = below(3) == 0;
      g.header.offset = below(2) == 0 ? 0 : 0x1000;
      // Lists without gaps, with gaps, in any order, with repeats, or empty.
      const uint32_t shape = below(5);
      const uint32_t first = 1 + below(6), length = shape == 4 ? 0 : below(7);
      for (uint32_t k = 0; k < length; ++k) {
        const uint32_t index = shape == 0   ? first + k
                               : shape == 1 ? first + 2 * k
                               : shape == 2 ? 1 + below(8)
                                            : first + k / 2;
        g.sections.push_back(static_cast<uint16_t>(index));
      }
    }
    const absl::StatusOr<SegmentOrder> order = segmentOrder(image);
    ASSERT_TRUE(order.ok()) << order.status();
    ASSERT_EQ(std::vector<size_t>(order->begin(), order->end()), queueOrder(image))
        << "round " << round;
  }
}

}  // namespace
}  // namespace engine
}  // namespace zelk_elf
