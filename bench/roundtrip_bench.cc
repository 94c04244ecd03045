// Round trips (load + save) of small real images, of a large generated image
// and of a large real shared library, beside the floors a round trip cannot
// beat: memcpy, and two copies into freshly allocated memory (a load must
// copy its input, a save must write its output). Saves alone, beside the one
// copy a save must make. The large cases report their peak resident memory
// above what the process held before, in multiples of the image's size. Also
// the save of images whose segments nest deeply, where the layout's work once
// grew cubically.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"
#include "elf/internal.h"
#include "zelk_elf/elf.h"

namespace {

using zelk_elf::ELF;

std::vector<uint8_t> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                              std::istreambuf_iterator<char>());
}

std::string corpus(const char* name) {
  return std::string(ZELK_ELF_SHARED_DIR) + "/corpus/real/" + name;
}

// A small zelk executable: code in a loadable segment, comment lines and all
// nine debug values.
std::vector<uint8_t> sampleImage() {
  ELF elf;
  elf.setMachine(0x5a4b);
  elf.setType(2);
  std::vector<uint8_t> code(32);
  for (size_t i = 0; i < code.size(); ++i) code[i] = static_cast<uint8_t>(i);
  elf.setText(code, 4);
  elf.setCommentInfo({"zelkcc 1.4.2 (zelk toolchain)", "-O2 -g -mcpu=zelk1"});
  elf.dbgID = zelk_elf::DebugInfoID{1, 258, 7};
  elf.spillInfo = zelk_elf::SpillInfo{{{4, 0, 1, "r4"}, {16, 1, 2, "acc"}, {24, 0, 3, "r4"}}};
  elf.swpInfo = zelk_elf::SWPInfo{{{12}, {20}}};
  elf.cfgInfo.emplace();
  elf.cfgInfo->edges.emplace_back(zelk_elf::BasicBlockRange{0, 12},
                                  zelk_elf::BasicBlockRange{12, 24});
  elf.cfgInfo->edges.emplace_back(zelk_elf::BasicBlockRange{12, 24},
                                  zelk_elf::BasicBlockRange{24, 32});
  elf.srcInfo = zelk_elf::SourceMap{{"main.zc", {"int main() {", "}"}},
                                    {"sum.zc", {"acc += xs[i];"}}};
  elf.symInfo = zelk_elf::SymbolMap{{"main", {1, 0}}, {"xs", {2, 0x1000}}};
  elf.pmSize = 8192;
  elf.setVerifyInfo("verified: 3 blocks, 1 loop, no hazards");
  elf.latencyInfo = zelk_elf::LatencyInfo{{{8, 1, 2, 0, 0, 0}, {16, 2, 1, 1, 0, 0}}};
  auto saved = elf.save();
  return std::vector<uint8_t>(saved->begin(), saved->end());
}

// 480 sections of 128 KiB, 4 MiB of code and thousands of debug entries:
// about 64 MiB.
std::vector<uint8_t> bigImage() {
  ELF elf;
  elf.setType(2);
  elf.setText(std::vector<uint8_t>(4 << 20, 0x90), 16);
  std::vector<uint8_t> data(128 << 10);
  for (int i = 0; i < 480; ++i) {
    for (size_t k = 0; k < data.size(); k += 64) data[k] = static_cast<uint8_t>(i + k);
    elf.setSection(".data." + std::to_string(i), data);
  }
  elf.spillInfo.emplace();
  elf.cfgInfo.emplace();
  for (uint32_t i = 0; i < 20000; ++i) {
    elf.spillInfo->locs.push_back({i * 4, 1, static_cast<uint8_t>(i % 6), "v" + std::to_string(i)});
    elf.cfgInfo->edges.emplace_back(zelk_elf::BasicBlockRange{i, i + 4},
                                    zelk_elf::BasicBlockRange{i + 4, i + 8});
  }
  auto saved = elf.save();
  return std::vector<uint8_t>(saved->begin(), saved->end());
}

// A field of /proc/self/status, in bytes.
uint64_t statusBytes(const char* field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field, 0) == 0) return std::stoull(line.substr(std::strlen(field))) << 10;
  }
  return 0;
}

// Measures the peak resident memory of each iteration above what was
// resident before it; reports the largest, as a multiple of `image_size`.
// Small images skip it: reading /proc costs more than their round trip.
class PeakMemory {
 public:
  explicit PeakMemory(size_t image_size) : image_size_(image_size) {}
  void start() {
    if (image_size_ < kMeasuredFrom) return;
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak restarts here
    before_ = statusBytes("VmRSS:");
  }
  void stop() {
    if (image_size_ < kMeasuredFrom) return;
    const uint64_t peak = statusBytes("VmHWM:");
    if (peak > before_ && peak - before_ > largest_) largest_ = peak - before_;
  }
  void report(benchmark::State& state) const {
    if (image_size_ < kMeasuredFrom) return;
    state.counters["peak_x"] = static_cast<double>(largest_) / static_cast<double>(image_size_);
  }

 private:
  static constexpr size_t kMeasuredFrom = 1 << 20;
  size_t image_size_;
  uint64_t before_ = 0, largest_ = 0;
};

// Runs `once()` per iteration, which returns false when it failed (and set
// the error), with the peak memory of each and the bytes processed.
template <typename Once>
void measure(benchmark::State& state, size_t image_size, Once once) {
  PeakMemory peak(image_size);
  for (auto _ : state) {
    peak.start();
    if (!once()) return;
    peak.stop();
  }
  peak.report(state);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(image_size));
}

// Saves `elf`; false, with the error set, when it fails.
bool saves(benchmark::State& state, ELF& elf) {
  auto saved = elf.save();
  if (!saved) state.SkipWithError("save failed");
  if (saved) benchmark::DoNotOptimize(saved->data());
  return saved.has_value();
}

void roundTrip(benchmark::State& state, const std::vector<uint8_t>& bytes) {
  if (bytes.empty()) return state.SkipWithError("image not available");
  measure(state, bytes.size(), [&] {
    absl::optional<ELF> elf = ELF::load(bytes);
    if (!elf) state.SkipWithError("load failed");
    return elf && saves(state, *elf);
  });
}

// `copies` copies of the image into fresh memory, one from the other: the
// floor of a save (one) and of a round trip (two: a load must copy its
// input, a save must write its output).
void freshCopies(benchmark::State& state, const std::vector<uint8_t>& bytes, int copies) {
  measure(state, bytes.size(), [&] {
    std::unique_ptr<uint8_t[]> from, to;
    const uint8_t* source = bytes.data();
    for (int i = 0; i < copies; ++i) {
      to.reset(new uint8_t[bytes.size()]);
      std::memcpy(to.get(), source, bytes.size());
      from = std::move(to);
      source = from.get();
    }
    benchmark::DoNotOptimize(from.get());
    return true;
  });
}

void twoCopies(benchmark::State& state, const std::vector<uint8_t>& bytes) {
  freshCopies(state, bytes, 2);
}

void oneCopy(benchmark::State& state, const std::vector<uint8_t>& bytes) {
  freshCopies(state, bytes, 1);
}

// A save of an object loaded once.
void saveOnly(benchmark::State& state, const std::vector<uint8_t>& bytes) {
  absl::optional<ELF> elf = ELF::load(bytes);
  if (!elf) return state.SkipWithError("load failed");
  measure(state, bytes.size(), [&] { return saves(state, *elf); });
}

void memcpyOnce(benchmark::State& state, const std::vector<uint8_t>& bytes) {
  std::vector<uint8_t> out(bytes.size());
  for (auto _ : state) {
    std::memcpy(out.data(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}

const std::vector<uint8_t>& image(const std::string& name) {
  static std::vector<std::pair<std::string, std::vector<uint8_t>>> cache;
  for (const auto& entry : cache) {
    if (entry.first == name) return entry.second;
  }
  std::vector<uint8_t> bytes;
  if (name == "sample") {
    bytes = sampleImage();
  } else if (name == "generated_64MiB") {
    bytes = bigImage();
  } else if (name == "libLLVM-14") {
    bytes = readFile("/usr/lib/x86_64-linux-gnu/libLLVM-14.so.1");
  } else {
    bytes = readFile(corpus(name.c_str()));
  }
  cache.emplace_back(name, std::move(bytes));
  return cache.back().second;
}

#define ZELK_SMALL(label, file)                                              \
  void BM_RoundTrip_##label(benchmark::State& s) { roundTrip(s, image(file)); } \
  BENCHMARK(BM_RoundTrip_##label);

ZELK_SMALL(ctors_22KiB_exe, "ctors")
ZELK_SMALL(libversion_d_15KiB_so, "libversion_d.so")
ZELK_SMALL(hello_64_7KiB_exe, "hello_64")
ZELK_SMALL(hello_32_o_1KiB_obj, "hello_32.o")
ZELK_SMALL(sample_all_debug, "sample")
#undef ZELK_SMALL

#define ZELK_LARGE(label, file)                                                 \
  void BM_RoundTrip_##label(benchmark::State& s) { roundTrip(s, image(file)); } \
  BENCHMARK(BM_RoundTrip_##label)->Unit(benchmark::kMillisecond);               \
  void BM_TwoCopies_##label(benchmark::State& s) { twoCopies(s, image(file)); } \
  BENCHMARK(BM_TwoCopies_##label)->Unit(benchmark::kMillisecond);               \
  void BM_Memcpy_##label(benchmark::State& s) { memcpyOnce(s, image(file)); }   \
  BENCHMARK(BM_Memcpy_##label)->Unit(benchmark::kMillisecond);                  \
  void BM_Save_##label(benchmark::State& s) { saveOnly(s, image(file)); }       \
  BENCHMARK(BM_Save_##label)->Unit(benchmark::kMillisecond);                    \
  void BM_OneCopy_##label(benchmark::State& s) { oneCopy(s, image(file)); }     \
  BENCHMARK(BM_OneCopy_##label)->Unit(benchmark::kMillisecond);

ZELK_LARGE(generated_64MiB, "generated_64MiB")
ZELK_LARGE(libLLVM_14_105MiB, "libLLVM-14")
#undef ZELK_LARGE

// `segments` loadable segments over `segments` sections of 16 bytes; segment
// i carries sections 1 .. i+1, so each one nests in the next.
ELF nestedSegments(int segments) {
  namespace e = zelk_elf::engine;
  ELF elf;
  elf.setType(2);
  e::Image& image = zelk_elf::imageOf(elf);
  const uint8_t data[16] = {};
  for (int k = 1; k <= segments; ++k) {
    e::Section& s = image.addSection(".s" + std::to_string(k));
    s.header.type = e::kShtProgbits;
    s.header.flags = e::kShfAlloc;
    s.setData(data, sizeof data).IgnoreError();
  }
  for (int i = 0; i < segments; ++i) {
    e::Segment& g = image.addSegment();
    g.header.type = e::kPtLoad;
    g.header.vaddr = 0x1000;
    for (int k = 1; k <= i + 1; ++k) g.addSectionIndex(static_cast<uint16_t>(k + 1), 1);
  }
  return elf;
}

void BM_SaveNestedSegments(benchmark::State& state) {
  ELF elf = nestedSegments(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto saved = elf.save();
    if (!saved) {
      state.SkipWithError("save failed");
      return;
    }
    benchmark::DoNotOptimize(saved->data());
  }
}
BENCHMARK(BM_SaveNestedSegments)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond)->Iterations(1);

// setSection of `n` new names, one after another, on a new object: each adds
// a section and a name, so the work should grow with n, not with n^2.
void BM_AddSections(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const uint8_t byte = 1;
  for (auto _ : state) {
    ELF elf;
    for (int i = 0; i < n; ++i) elf.setSection(".s" + std::to_string(i), {&byte, 1});
    benchmark::DoNotOptimize(elf.impl.get());
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_AddSections)->Arg(4096)->Arg(65000)->Unit(benchmark::kMillisecond);

}  // namespace
