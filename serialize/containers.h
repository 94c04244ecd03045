// Codecs of counted lists of strings, string-keyed maps and lists that run
// to the end of the input.
//
// Counts are untrusted. Each element occupies at least MinWireSize bytes, so
// a count the remaining input cannot hold is refused before anything is
// allocated, and no reservation exceeds what the input could fill. A count is
// taken as size_t without a range test: where size_t has 32 bits only its low
// 32 bits count (writers never produce larger counts).
#ifndef ZELK_ELF_SERIALIZE_CONTAINERS_H_
#define ZELK_ELF_SERIALIZE_CONTAINERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "absl/types/variant.h"
#include "serialize/mem_reader.h"
#include "serialize/traits.h"

namespace tolva_lib {
namespace serialize {

template <typename K, typename V>
struct MinWireSize<std::unordered_map<K, V>> {
  static constexpr size_t value = 8;  // the entry count alone
};
template <>
struct MinWireSize<std::vector<std::string>> {
  static constexpr size_t value = 8;
};

namespace internal {

// Reads a uint64_t count and refuses it when `count` elements of at least
// `min_size` bytes cannot fit in what remains. A refused count abandons the
// rest of the input, exactly as running out of it would.
template <typename D>
DecodeResult<size_t, D> readCount(D& d, size_t min_size) {
  const size_t at = d.reader().position();
  auto count = d.readU64();
  if (count.isErr()) return typename D::ErrTy{};
  size_t n = static_cast<size_t>(count.getOk());
  if (n > d.remaining() / min_size) {
    d.reader().mark(io::MemReader::Unit::kCount, at);
    d.skipToEnd();
    return typename D::ErrTy{};
  }
  return n;
}

}  // namespace internal

// Reads exactly `count` strings; the first failure discards them all.
template <typename D>
DecodeResult<std::vector<std::string>, D> decodeStrings(D& d, size_t count) {
  std::vector<std::string> out;
  size_t cap = d.remaining() / MinWireSize<std::string>::value;
  out.reserve(count < cap ? count : cap);
  for (size_t i = 0; i < count; ++i) {
    auto s = d.readStr();
    if (s.isErr()) return typename D::ErrTy{};
    out.push_back(std::move(s).getOk());
  }
  return out;
}


template <>
struct Decodable<std::vector<std::string>> {
  template <typename D>
  static DecodeResult<std::vector<std::string>, D> decode(D& d) {
    auto count = internal::readCount(d, MinWireSize<std::string>::value);
    if (count.isErr()) return typename D::ErrTy{};
    return decodeStrings(d, count.getOk());
  }
};

template <>
struct Encodable<std::vector<std::string>> {
  template <typename E>
  static EncodeResult<E> encode(const std::vector<std::string>& v, E& e) {
    e.writeU64(static_cast<uint64_t>(v.size()));
    for (const std::string& s : v) put(s, e);
    return absl::monostate{};
  }
};

// Inserting a key into an unordered_map costs work in the number of keys
// already in its bucket. std::hash is unseeded, so keys that share a bucket
// are easy to build, and a few thousand of them make filling a map
// quadratic. A map filled through this guard refuses the key that would put
// more than kMaxKeysPerBucket distinct keys into one bucket, which keeps the
// work linear. Real names never come near it: in a map reserved for its
// keys, 32 random keys share a bucket with a probability below 10^-30.
constexpr size_t kMaxKeysPerBucket = 32;

template <typename Map>
class BucketGuard {
 public:
  enum class Outcome { kInserted, kDuplicate, kCrowded };

  // Reserves `map` (empty) for `expected` keys, so that its bucket count
  // stays while at most that many distinct keys come.
  BucketGuard(Map& map, size_t expected) : map_(map) {
    map_.reserve(expected);
    // Fewer keys than the limit cannot crowd a bucket.
    if (expected > kMaxKeysPerBucket) load_.assign(map_.bucket_count(), 0);
  }

  // Inserts (key, value) unless the key is there already (the first value
  // stays) or its bucket is full.
  template <typename K, typename V>
  Outcome tryEmplace(K&& key, V&& value) {
    if (load_.empty()) {
      return map_.try_emplace(std::forward<K>(key), std::forward<V>(value)).second
                 ? Outcome::kInserted
                 : Outcome::kDuplicate;
    }
    const size_t bucket = map_.bucket(key);
    if (load_[bucket] == kMaxKeysPerBucket) {
      return map_.find(key) != map_.end() ? Outcome::kDuplicate : Outcome::kCrowded;
    }
    if (!map_.try_emplace(std::forward<K>(key), std::forward<V>(value)).second) {
      return Outcome::kDuplicate;
    }
    ++load_[bucket];
    return Outcome::kInserted;
  }

 private:
  Map& map_;
  std::vector<uint8_t> load_;  // distinct keys per bucket, when counted
};

// Reads exactly `count` entries (key, then value). A repeated key keeps the
// first value; the later entry is read and dropped. Keys built to crowd one
// hash bucket are refused (BucketGuard).
template <typename V, typename D>
DecodeResult<std::unordered_map<std::string, V>, D> decodeMapEntries(
    D& d, size_t count) {
  using Map = std::unordered_map<std::string, V>;
  Map out;
  constexpr size_t kEntry = MinWireSize<std::string>::value + MinWireSize<V>::value;
  size_t cap = d.remaining() / kEntry;
  BucketGuard<Map> guard(out, count < cap ? count : cap);
  for (size_t i = 0; i < count; ++i) {
    const size_t at = d.reader().position();
    d.reader().mark(io::MemReader::Unit::kEntry, at);
    auto key = d.readStr();
    if (key.isErr()) return typename D::ErrTy{};
    auto value = Decodable<V>::decode(d);
    if (value.isErr()) return typename D::ErrTy{};
    if (guard.tryEmplace(std::move(key).getOk(), std::move(value).getOk()) ==
        BucketGuard<Map>::Outcome::kCrowded) {
      d.reader().mark(io::MemReader::Unit::kCrowdedKey, at);
      return typename D::ErrTy{};
    }
  }
  return out;
}

template <typename V>
struct Decodable<std::unordered_map<std::string, V>> {
  template <typename D>
  static DecodeResult<std::unordered_map<std::string, V>, D> decode(D& d) {
    auto count = internal::readCount(
        d, MinWireSize<std::string>::value + MinWireSize<V>::value);
    if (count.isErr()) return typename D::ErrTy{};
    return decodeMapEntries<V>(d, count.getOk());
  }
};

template <typename V>
struct Encodable<std::unordered_map<std::string, V>> {
  template <typename E>
  // Entries in the map's own iteration order; readers do not depend on it.
  static EncodeResult<E> encode(const std::unordered_map<std::string, V>& m,
                                E& e) {
    e.writeU64(static_cast<uint64_t>(m.size()));
    for (const auto& entry : m) {
      put(entry.first, e);
      put(entry.second, e);
    }
    return absl::monostate{};
  }
};

// Decodes elements with `decode_one(d)` until no byte remains. Empty input
// is an empty list; a tail too short for a whole element is an error.
template <typename T, typename D, typename F>
DecodeResult<std::vector<T>, D> decodeToEnd(D& d, F&& decode_one) {
  std::vector<T> out;
  out.reserve(d.remaining() / MinWireSize<T>::value);
  while (d.remaining() != 0) {
    d.reader().mark(io::MemReader::Unit::kElement, d.reader().position());
    auto elem = decode_one(d);
    if (elem.isErr()) return typename D::ErrTy{};
    out.push_back(std::move(elem).getOk());
  }
  return out;
}

template <typename T, typename D>
DecodeResult<std::vector<T>, D> decodeToEnd(D& d) {
  return decodeToEnd<T>(d, [](D& dd) { return Decodable<T>::decode(dd); });
}

// Each element in list order, with nothing before, between or after.
template <typename T, typename E>
void putEach(const std::vector<T>& v, E& e) {
  for (const T& x : v) put(x, e);
}

}  // namespace serialize
}  // namespace tolva_lib

#endif  // ZELK_ELF_SERIALIZE_CONTAINERS_H_
