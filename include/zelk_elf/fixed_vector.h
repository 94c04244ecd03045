// The owned byte buffer in which a saved image leaves the library, and the
// malloc-backed allocator behind it (so C callers can release it with free).
#ifndef ZELK_ELF_FIXED_VECTOR_H_
#define ZELK_ELF_FIXED_VECTOR_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace tolva_lib {
namespace mem {

// Stateless allocator over the process heap.
struct SystemAllocator {
  void* allocate(size_t n) const {
    void* p = std::malloc(n);
    if (p == nullptr) throw std::bad_alloc();
    return p;
  }
  void deallocate(void* p) const { std::free(p); }
};

}  // namespace mem

// A buffer whose size is fixed at construction. Move-only: nothing in the
// library needs copies, and an accidental copy of a whole image is costly.
// Its layout is a pointer and a count: the allocator is stateless, so it is
// not stored (callers across the interface rely on that layout).
template <typename T, typename Allocator>
class FixedVector {
 public:
  FixedVector() = default;

  // Copies `n` elements from `src`; `src` may be null when `n` is 0.
  FixedVector(const T* src, size_t n, const Allocator& alloc = Allocator()) {
    if (n == 0) return;
    data_ = static_cast<T*>(alloc.allocate(n * sizeof(T)));
    std::memcpy(data_, src, n * sizeof(T));
    size_ = n;
  }

  // `n` elements left for the caller to write before anything reads them:
  // for writers that produce every byte, without zeroing them first.
  static FixedVector forOverwrite(size_t n, const Allocator& alloc = Allocator()) {
    FixedVector v;
    if (n == 0) return v;
    v.data_ = static_cast<T*>(alloc.allocate(n * sizeof(T)));
    v.size_ = n;
    return v;
  }

  FixedVector(FixedVector&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)),
        size_(std::exchange(other.size_, 0)) {}

  FixedVector& operator=(FixedVector&& other) noexcept {
    if (this != &other) {
      reset();
      data_ = std::exchange(other.data_, nullptr);
      size_ = std::exchange(other.size_, 0);
    }
    return *this;
  }

  FixedVector(const FixedVector&) = delete;
  FixedVector& operator=(const FixedVector&) = delete;

  ~FixedVector() { reset(); }

  const T* data() const { return data_; }
  T* data() { return data_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }
  const T& operator[](size_t i) const { return data_[i]; }

  // Hands the buffer to the caller, who then frees it through the allocator
  // (with SystemAllocator: free()). The vector is left empty.
  std::pair<T*, size_t> release() {
    return {std::exchange(data_, nullptr), std::exchange(size_, 0)};
  }

 private:
  void reset() {
    if (data_ != nullptr) Allocator().deallocate(data_);
    data_ = nullptr;
    size_ = 0;
  }

  T* data_ = nullptr;
  size_t size_ = 0;
};

// The saved-image buffer is exactly a pointer and a count on every target.
static_assert(sizeof(FixedVector<uint8_t, mem::SystemAllocator>) ==
                  sizeof(uint8_t*) + sizeof(size_t),
              "FixedVector must hold only its pointer and its count");

}  // namespace tolva_lib

#endif  // ZELK_ELF_FIXED_VECTOR_H_
