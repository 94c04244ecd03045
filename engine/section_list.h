// The list of section indexes a segment carries, stored as runs of
// consecutive indexes. Segments list their sections in table order almost
// always, so a segment over thousands of sections is one run of a few bytes
// kept inline; an arbitrary list still round-trips exactly.
#ifndef ZELK_ELF_ENGINE_SECTION_LIST_H_
#define ZELK_ELF_ENGINE_SECTION_LIST_H_

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include "absl/container/inlined_vector.h"

namespace zelk_elf {
namespace engine {

class SectionList {
 public:
  // `count` indexes first, first + 1, ...; count >= 1.
  struct Run {
    uint16_t first;
    uint32_t count;
    uint32_t last() const { return first + count - 1; }
  };

  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = uint16_t;
    using difference_type = std::ptrdiff_t;
    using pointer = const uint16_t*;
    using reference = uint16_t;

    uint16_t operator*() const { return static_cast<uint16_t>(run_->first + step_); }
    const_iterator& operator++() {
      if (++step_ == run_->count) {
        ++run_;
        step_ = 0;
      }
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const const_iterator& o) const {
      return run_ == o.run_ && step_ == o.step_;
    }
    bool operator!=(const const_iterator& o) const { return !(*this == o); }

   private:
    friend class SectionList;
    const_iterator(const Run* run, uint32_t step) : run_(run), step_(step) {}
    const Run* run_;
    uint32_t step_;
  };

  SectionList() = default;

  // Appends `index`, extending the last run when it follows it.
  void push_back(uint16_t index) {
    if (!runs_.empty() && runs_.back().last() + 1 == index) {
      ++runs_.back().count;
    } else {
      runs_.push_back(Run{index, 1});
    }
    ++size_;
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  uint16_t front() const { return runs_.front().first; }
  uint16_t back() const { return static_cast<uint16_t>(runs_.back().last()); }
  const_iterator begin() const { return const_iterator(runs_.data(), 0); }
  const_iterator end() const { return const_iterator(runs_.data() + runs_.size(), 0); }
  absl::Span<const Run> runs() const { return runs_; }

  // Whether the indexes ascend strictly, so the list is a set.
  bool ascending() const {
    for (size_t i = 1; i < runs_.size(); ++i) {
      if (runs_[i].first <= runs_[i - 1].last()) return false;
    }
    return true;
  }

  std::vector<uint16_t> toVector() const { return std::vector<uint16_t>(begin(), end()); }

 private:
  absl::InlinedVector<Run, 1> runs_;
  size_t size_ = 0;
};

}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_ENGINE_SECTION_LIST_H_
