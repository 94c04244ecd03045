// Save and load throughput of the whole library (debug sections included)
// on a generated 64 MiB image with hundreds of sections and all nine debug
// values, beside a plain copy of the same bytes.
#include <cstring>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"
#include "zelk_elf/elf.h"

namespace {

using zelk_elf::ELF;

// 480 sections of 128 KiB, 4 MiB of code, and every debug value filled with
// thousands of entries.
ELF makeBigElf() {
  ELF elf;
  elf.setMachine(0x1234);
  elf.setType(2);
  std::vector<uint8_t> code(4 << 20, 0x90);
  elf.setText(code, 16);
  elf.setCommentInfo({"zelkcc 1.0", "-O2"});
  std::vector<uint8_t> data(128 << 10);
  for (int i = 0; i < 480; ++i) {
    for (size_t k = 0; k < data.size(); k += 64) data[k] = static_cast<uint8_t>(i + k);
    elf.setSection(".data." + std::to_string(i), data);
  }
  elf.dbgID = zelk_elf::DebugInfoID{1, 7, 9};
  elf.spillInfo.emplace();
  elf.swpInfo.emplace();
  elf.cfgInfo.emplace();
  elf.latencyInfo.emplace();
  elf.srcInfo.emplace();
  elf.symInfo.emplace();
  for (uint32_t i = 0; i < 20000; ++i) {
    elf.spillInfo->locs.push_back({i * 4, 1, static_cast<uint8_t>(i % 6), "v" + std::to_string(i)});
    elf.swpInfo->locs.push_back({i * 8});
    elf.cfgInfo->edges.emplace_back(zelk_elf::BasicBlockRange{i, i + 4},
                                    zelk_elf::BasicBlockRange{i + 4, i + 8});
    elf.latencyInfo->locs.push_back({i, 1, 2, 3, 4, 5});
  }
  for (int f = 0; f < 100; ++f) {
    auto& lines = (*elf.srcInfo)["src/file" + std::to_string(f) + ".c"];
    for (int l = 0; l < 100; ++l) lines.push_back("line " + std::to_string(l));
    (*elf.symInfo)["sym" + std::to_string(f)] = {2, static_cast<uint32_t>(f * 16)};
  }
  elf.pmSize = 1 << 20;
  elf.setVerifyInfo("verified");
  return elf;
}

ELF& bigElf() {
  static ELF elf = makeBigElf();
  return elf;
}

const ELF::Image& savedBytes() {
  static ELF::Image bytes = std::move(*bigElf().save());
  return bytes;
}

void BM_Memcpy(benchmark::State& state) {
  const ELF::Image& in = savedBytes();
  std::vector<uint8_t> out(in.size());
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * in.size());
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

void BM_Save(benchmark::State& state) {
  const size_t size = savedBytes().size();
  for (auto _ : state) {
    auto bytes = bigElf().save();
    if (!bytes) state.SkipWithError("save failed");
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(state.iterations() * size);
}
BENCHMARK(BM_Save)->Unit(benchmark::kMillisecond);

void BM_Load(benchmark::State& state) {
  const ELF::Image& in = savedBytes();
  for (auto _ : state) {
    auto elf = ELF::load(absl::MakeConstSpan(in.data(), in.size()));
    if (!elf) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(elf);
  }
  state.SetBytesProcessed(state.iterations() * in.size());
}
BENCHMARK(BM_Load)->Unit(benchmark::kMillisecond);

}  // namespace
