// Load and save throughput of the engine on a generated 64 MiB image with
// hundreds of sections, beside a plain copy of the same bytes.
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"
#include "engine/image.h"

namespace {

using zelk_elf::engine::Image;
namespace e = zelk_elf::engine;

// 512 sections of 128 KiB, half of them in one loadable segment.
const std::string& bigImage() {
  static const std::string bytes = [] {
    Image image;
    image.create(e::kClass64, e::kDataLsb);
    image.setType(e::kEtExec);
    e::Segment& load = image.addSegment();
    load.setType(e::kPtLoad);
    load.setFlags(e::kPfR | e::kPfX);
    load.setVirtualAddress(0x400000);
    load.setAlign(0x1000);
    std::vector<uint8_t> data(128 << 10);
    for (int i = 0; i < 512; ++i) {
      for (size_t k = 0; k < data.size(); k += 64) data[k] = static_cast<uint8_t>(i + k);
      e::Section& s = image.addSection(".s" + std::to_string(i));
      s.setType(e::kShtProgbits);
      s.setData(data.data(), data.size());
      s.setAddrAlign(16);
      if (i % 2 == 0) {
        s.setFlags(e::kShfAlloc);
        load.addSectionIndex(static_cast<uint16_t>(s.index()), 16);
      }
    }
    std::ostringstream out;
    image.save(out);
    return out.str();
  }();
  return bytes;
}

void BM_Memcpy(benchmark::State& state) {
  const std::string& in = bigImage();
  std::vector<char> out(in.size());
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * in.size());
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

void BM_Load(benchmark::State& state) {
  const std::string& in = bigImage();
  const auto* p = reinterpret_cast<const uint8_t*>(in.data());
  for (auto _ : state) {
    Image image;
    if (!image.load({p, in.size()})) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(image.sectionCount());
  }
  state.SetBytesProcessed(state.iterations() * in.size());
}
BENCHMARK(BM_Load)->Unit(benchmark::kMillisecond);

void BM_Save(benchmark::State& state) {
  const std::string& in = bigImage();
  Image image;
  image.load({reinterpret_cast<const uint8_t*>(in.data()), in.size()});
  for (auto _ : state) {
    std::ostringstream out;
    if (!image.save(out)) state.SkipWithError("save failed");
    benchmark::DoNotOptimize(out.tellp());
  }
  state.SetBytesProcessed(state.iterations() * in.size());
}
BENCHMARK(BM_Save)->Unit(benchmark::kMillisecond);

}  // namespace
