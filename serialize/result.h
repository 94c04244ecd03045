// The value-or-error outcome of every decode and encode.
#ifndef ZELK_ELF_SERIALIZE_RESULT_H_
#define ZELK_ELF_SERIALIZE_RESULT_H_

#include <exception>
#include <type_traits>
#include <utility>

#include "absl/types/variant.h"

namespace tolva_lib {

// Holds either the value (Ok, alternative 0) or the error (Err, alternative
// 1), never both and never neither. T and E must differ so that either can be
// passed without naming the other.
template <typename T, typename E>
class Result {
  static_assert(!std::is_same<T, E>::value, "Ok and Err types must differ");

 public:
  Result(const T& value) : v_(absl::in_place_index<0>, value) {}
  Result(T&& value) : v_(absl::in_place_index<0>, std::move(value)) {}
  Result(const E& error) : v_(absl::in_place_index<1>, error) {}
  Result(E&& error) : v_(absl::in_place_index<1>, std::move(error)) {}

  Result(Result&&) = default;
  Result& operator=(Result&&) = default;
  Result(const Result&) = default;
  Result& operator=(const Result&) = default;

  bool isOk() const { return v_.index() == 0; }
  bool isErr() const { return v_.index() == 1; }

  // Taking the wrong alternative is a programming error; it ends the process
  // rather than throwing, so callers cannot mistake it for a decode failure.
  T& getOk() & { return *okOrDie(); }
  const T& getOk() const& { return *okOrDie(); }
  T&& getOk() && { return std::move(*okOrDie()); }
  E& getErr() & { return *errOrDie(); }
  const E& getErr() const& { return *errOrDie(); }
  E&& getErr() && { return std::move(*errOrDie()); }

 private:
  T* okOrDie() {
    T* p = absl::get_if<0>(&v_);
    if (p == nullptr) std::terminate();
    return p;
  }
  const T* okOrDie() const {
    const T* p = absl::get_if<0>(&v_);
    if (p == nullptr) std::terminate();
    return p;
  }
  E* errOrDie() {
    E* p = absl::get_if<1>(&v_);
    if (p == nullptr) std::terminate();
    return p;
  }
  const E* errOrDie() const {
    const E* p = absl::get_if<1>(&v_);
    if (p == nullptr) std::terminate();
    return p;
  }

  absl::variant<T, E> v_;
};

}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_RESULT_H_
