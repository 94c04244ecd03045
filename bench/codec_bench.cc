// Throughput of the debug-payload codecs on large payloads, beside a memcpy
// of the same bytes as the floor. Reports MB/s (bytes_per_second) and the
// time per element (ns_per_elem).
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"
#include "debuginfo/codecs.h"
#include "serialize/containers.h"
#include "serialize/decoder.h"
#include "serialize/encoder.h"
#include "serialize/mem_reader.h"
#include "serialize/mem_writer.h"
#include "zelk_elf/elf.h"

namespace {

using tolva_lib::io::MemReader;
using tolva_lib::io::MemWriter;
using tolva_lib::serialize::Decodable;
using tolva_lib::serialize::Encodable;
using Dec = tolva_lib::serialize::binary::Decoder<MemReader>;
using Enc = tolva_lib::serialize::binary::Encoder<MemWriter>;

constexpr size_t kElements = 100000;

zelk_elf::SpillInfo MakeSpill() {
  zelk_elf::SpillInfo v;
  for (size_t i = 0; i < kElements; ++i) {
    v.locs.push_back({static_cast<uint32_t>(i * 4), static_cast<uint8_t>(i),
                      static_cast<uint8_t>(i % 6), "r" + std::to_string(i % 977)});
  }
  return v;
}

zelk_elf::ControlFlowGraph MakeCfg() {
  zelk_elf::ControlFlowGraph v;
  for (uint32_t i = 0; i < kElements; ++i) {
    v.edges.emplace_back(zelk_elf::BasicBlockRange{i, i + 8},
                         zelk_elf::BasicBlockRange{i + 8, i + 20});
  }
  return v;
}

zelk_elf::LatencyInfo MakeLatency() {
  zelk_elf::LatencyInfo v;
  for (uint32_t i = 0; i < kElements; ++i) {
    v.locs.push_back({i, 1, 2, 3, 4, static_cast<uint8_t>(i)});
  }
  return v;
}

// 1000 sources of 100 lines each: 100000 strings.
zelk_elf::SourceMap MakeSrc() {
  zelk_elf::SourceMap v;
  for (size_t f = 0; f < kElements / 100; ++f) {
    std::vector<std::string> lines;
    for (size_t l = 0; l < 100; ++l) {
      lines.push_back("  x" + std::to_string(l) + " = load r" + std::to_string(f));
    }
    v.emplace("src/file" + std::to_string(f) + ".zc", std::move(lines));
  }
  return v;
}

template <typename T>
std::vector<uint8_t> EncodeAll(const T& value) {
  std::vector<uint8_t> out;
  MemWriter w(out);
  Enc e(w);
  (void)Encodable<T>::encode(value, e);
  return out;
}

template <typename T>
void SetCounters(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["ns_per_elem"] = benchmark::Counter(
      static_cast<double>(kElements),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template <typename T, T (*Make)()>
void BM_Decode(benchmark::State& state) {
  const std::vector<uint8_t> payload = EncodeAll(Make());
  for (auto _ : state) {
    MemReader r(payload.data(), payload.size());
    Dec d(r);
    auto v = Decodable<T>::decode(d);
    benchmark::DoNotOptimize(v);
  }
  SetCounters<T>(state, payload.size());
}

template <typename T, T (*Make)()>
void BM_Encode(benchmark::State& state) {
  const T value = Make();
  size_t size = 0;
  for (auto _ : state) {
    std::vector<uint8_t> out;
    MemWriter w(out);
    Enc e(w);
    benchmark::DoNotOptimize(Encodable<T>::encode(value, e));
    size = out.size();
    benchmark::DoNotOptimize(out.data());
  }
  SetCounters<T>(state, size);
}

template <typename T, T (*Make)()>
void BM_Memcpy(benchmark::State& state) {
  const std::vector<uint8_t> payload = EncodeAll(Make());
  for (auto _ : state) {
    std::vector<uint8_t> copy(payload.size());
    std::memcpy(copy.data(), payload.data(), payload.size());
    benchmark::DoNotOptimize(copy.data());
  }
  SetCounters<T>(state, payload.size());
}

#define ZELK_CODEC_BENCH(T, Make)                       \
  BENCHMARK_TEMPLATE(BM_Decode, T, Make)->Unit(benchmark::kMicrosecond); \
  BENCHMARK_TEMPLATE(BM_Encode, T, Make)->Unit(benchmark::kMicrosecond); \
  BENCHMARK_TEMPLATE(BM_Memcpy, T, Make)->Unit(benchmark::kMicrosecond);

ZELK_CODEC_BENCH(zelk_elf::SpillInfo, MakeSpill)
ZELK_CODEC_BENCH(zelk_elf::ControlFlowGraph, MakeCfg)
ZELK_CODEC_BENCH(zelk_elf::LatencyInfo, MakeLatency)
ZELK_CODEC_BENCH(zelk_elf::SourceMap, MakeSrc)

// A symbol map of 2^16 keys of 16 bytes: random ones, or ones built to share
// one full std::hash value. libstdc++'s 64-bit string hash takes each 8-byte
// block as h = (h ^ f(block)) * mul with an invertible f, so for any first
// block a second one exists that lands every key on the same state: a flood
// costs nothing to build. Decoding random keys is the floor; built ones must
// not cost more than it (they are refused after a few).
constexpr uint64_t kMul = (uint64_t{0xc6a4a793} << 32) + 0x5bd1e995;

uint64_t inverse(uint64_t odd) {  // Newton's iteration modulo 2^64
  uint64_t x = odd;
  for (int i = 0; i < 5; ++i) x *= 2 - odd * x;
  return x;
}

uint64_t shiftMix(uint64_t v) { return v ^ (v >> 47); }  // its own inverse

std::vector<uint8_t> symbolKeys(bool colliding) {
  constexpr size_t kKeys = size_t{1} << 16;
  const uint64_t inv = inverse(kMul);
  const auto f = [](uint64_t block) { return shiftMix(block * kMul) * kMul; };
  const auto f_inverse = [inv](uint64_t y) { return shiftMix(y * inv) * inv; };
  const uint64_t start = 0xc70f6907u ^ (16 * kMul);  // the seed, and the length
  uint64_t random = 0x9e3779b97f4a7c15;
  std::vector<uint8_t> payload(8);
  payload[2] = static_cast<uint8_t>(kKeys >> 16);
  std::string first_key;
  for (size_t i = 0; i < kKeys; ++i) {
    random = random * 6364136223846793005u + 1442695040888963407u;
    const uint64_t first = random;
    random = random * 6364136223846793005u + 1442695040888963407u;
    const uint64_t second = colliding ? f_inverse(((start ^ f(first)) * kMul) ^ 42) : random;
    char key[16];
    std::memcpy(key, &first, 8);
    std::memcpy(key + 8, &second, 8);
    if (i == 0) first_key.assign(key, 16);
    if (colliding && std::hash<std::string>()(std::string(key, 16)) !=
                         std::hash<std::string>()(first_key)) {
      return {};  // not the hash this was built for
    }
    const uint8_t entry[8 + 16 + 5] = {16};
    payload.insert(payload.end(), entry, entry + sizeof entry);
    std::memcpy(payload.data() + payload.size() - 21, key, 16);
  }
  return payload;
}

void BM_DecodeSymbolKeys(benchmark::State& state) {
  const bool colliding = state.range(0) != 0;
  const std::vector<uint8_t> payload = symbolKeys(colliding);
  if (payload.empty()) {
    state.SkipWithError("this std::hash is not the one the keys were built for");
    return;
  }
  for (auto _ : state) {
    MemReader r(payload.data(), payload.size());
    Dec d(r);
    auto v = Decodable<zelk_elf::SymbolMap>::decode(d);
    benchmark::DoNotOptimize(v);
  }
  state.SetLabel(colliding ? "colliding keys" : "random keys");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload.size()));
}
BENCHMARK(BM_DecodeSymbolKeys)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
