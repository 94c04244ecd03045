// Codecs of the debug-information records: the payload layouts of the
// ".zelk.dbg." sections, derived from each record's field list
// (zelk_elf::Fields). A record is its fields in declaration order; a record
// whose one field is a list (spill, SWP and latency locations, CFG edges) is
// that list's elements running to the end of the payload; a CFG edge, a
// tuple, is its elements in order.
#ifndef ZELK_ELF_DEBUGINFO_CODECS_H_
#define ZELK_ELF_DEBUGINFO_CODECS_H_

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "absl/base/attributes.h"
#include "absl/types/variant.h"
#include "serialize/containers.h"
#include "serialize/traits.h"
#include "zelk_elf/debug_info.h"

namespace tolva_lib {
namespace serialize {
namespace internal {

template <typename T>
using EnableForFields =
    std::enable_if_t<zelk_elf::IsRecord<T>::value && !zelk_elf::IsListRecord<T>::value>;
template <typename T>
using EnableForList = std::enable_if_t<zelk_elf::IsListRecord<T>::value>;

// Reads one value into `out`; false when it cannot be read.
template <typename D, typename T>
ABSL_ATTRIBUTE_ALWAYS_INLINE inline bool readInto(D& d, T& out) {
  auto read = Decodable<T>::decode(d);
  if (read.isErr()) return false;
  out = std::move(read).getOk();
  return true;
}

}  // namespace internal

template <typename Record>
struct MinWireSize<Record, internal::EnableForFields<Record>> {
  static constexpr size_t value = std::apply(
      [](const auto&... fields) {
        return (MinWireSize<typename std::decay_t<decltype(fields)>::Type>::value + ... + 0);
      },
      zelk_elf::Fields<Record>::kList);
};

template <typename... Ts>
struct MinWireSize<std::tuple<Ts...>> {
  static constexpr size_t value = (MinWireSize<Ts>::value + ... + 0);
};

template <typename Record>
struct Decodable<Record, internal::EnableForFields<Record>> {
  template <typename D>
  static DecodeResult<Record, D> decode(D& d) {
    Record v;
    // Field by field, stopping at the first that cannot be read.
    const bool ok = std::apply(
        [&](const auto&... fields) { return (internal::readInto(d, v.*(fields.member)) && ...); },
        zelk_elf::Fields<Record>::kList);
    if (!ok) return typename D::ErrTy{};
    return v;
  }
};
template <typename Record>
struct Encodable<Record, internal::EnableForFields<Record>> {
  template <typename E>
  static EncodeResult<E> encode(const Record& v, E& e) {
    zelk_elf::visitFields([&e](const char*, const auto& field) { put(field, e); }, v);
    return absl::monostate{};
  }
};

template <typename Record>
struct Decodable<Record, internal::EnableForList<Record>> {
  template <typename D>
  static DecodeResult<Record, D> decode(D& d) {
    Record v;
    auto& list = v.*(std::get<0>(zelk_elf::Fields<Record>::kList).member);
    auto read = decodeToEnd<typename std::decay_t<decltype(list)>::value_type>(d);
    if (read.isErr()) return typename D::ErrTy{};
    list = std::move(read).getOk();
    return v;
  }
};
template <typename Record>
struct Encodable<Record, internal::EnableForList<Record>> {
  template <typename E>
  static EncodeResult<E> encode(const Record& v, E& e) {
    putEach(v.*(std::get<0>(zelk_elf::Fields<Record>::kList).member), e);
    return absl::monostate{};
  }
};

template <typename... Ts>
struct Decodable<std::tuple<Ts...>> {
  template <typename D>
  static DecodeResult<std::tuple<Ts...>, D> decode(D& d) {
    std::tuple<Ts...> v;
    const bool ok =
        std::apply([&](auto&... elements) { return (internal::readInto(d, elements) && ...); }, v);
    if (!ok) return typename D::ErrTy{};
    return v;
  }
};
template <typename... Ts>
struct Encodable<std::tuple<Ts...>> {
  template <typename E>
  static EncodeResult<E> encode(const std::tuple<Ts...>& v, E& e) {
    std::apply([&e](const auto&... elements) { (put(elements, e), ...); }, v);
    return absl::monostate{};
  }
};

}  // namespace serialize
}  // namespace tolva_lib

#endif  // ZELK_ELF_DEBUGINFO_CODECS_H_
