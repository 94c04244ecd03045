#include "reliability/sample_images.h"

#include <tuple>
#include <utility>

namespace zelk_elf {
namespace testing {
namespace {

// Small deterministic generator (xorshift32), so every variant is the same
// on every run and every target.
class Rng {
 public:
  explicit Rng(uint32_t seed) : state_(seed * 2654435761u + 0x9E3779B9u) {
    if (state_ == 0) state_ = 1;
  }
  uint32_t next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }
  uint32_t below(uint32_t n) { return n == 0 ? 0 : next() % n; }

 private:
  uint32_t state_;
};

// Texts of varied length: empty, short and beyond the small-string buffer.
std::string makeText(Rng& rng, const char* stem, uint32_t i) {
  std::string text = std::string(stem) + std::to_string(i);
  const uint32_t extra = rng.below(4) == 0 ? 0 : rng.below(40);
  for (uint32_t k = 0; k < extra; ++k) {
    text += static_cast<char>('a' + rng.below(26));
  }
  return text;
}

std::vector<uint8_t> makeBytes(Rng& rng, size_t n) {
  std::vector<uint8_t> bytes(n);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng.next());
  return bytes;
}

// Variant 0 keeps every count at its fixed rich value.
uint32_t countFor(Rng& rng, uint32_t variant, uint32_t rich, uint32_t max) {
  if (variant == 0) return rich;
  return rng.below(max + 1);
}

}  // namespace

ELF makeSampleELF(uint32_t variant) {
  Rng rng(variant);
  const bool rich = variant == 0;
  ELF elf;
  elf.setMachine(static_cast<uint16_t>(rich ? 0x5A4B : rng.next()));
  elf.setType(rich ? 2 : static_cast<uint16_t>(1 + rng.below(3)));
  elf.setEntry(rich ? 0x400 : rng.below(0x10000));

  const std::vector<uint8_t> code =
      makeBytes(rng, rich ? 64 : 4 * rng.below(200));
  elf.setText(code, rich ? 16 : 1u << rng.below(8));

  std::vector<std::string> lines = {"zelk compiler 4.1", "", "opt: -O2"};
  if (!rich) {
    for (uint32_t i = 0, n = rng.below(6); i < n; ++i) {
      lines.push_back(makeText(rng, "note ", i));
    }
  }
  elf.setCommentInfo(std::vector<absl::string_view>(lines.begin(), lines.end()));

  const uint32_t raw = rich ? 2 : rng.below(4);
  for (uint32_t i = 0; i < raw; ++i) {
    elf.setSection(".zelk.raw" + std::to_string(i),
                   makeBytes(rng, rich ? 24 : rng.below(300)));
  }

  DebugInfoID id;
  id.kind = static_cast<uint8_t>(rich ? 1 : rng.below(9) == 0 ? 2 : rng.below(2));
  id.id0 = rich ? 7 : static_cast<uint16_t>(rng.next());
  id.id1 = rich ? 65535 : static_cast<uint16_t>(rng.next());
  elf.dbgID = id;

  SpillInfo spill;
  for (uint32_t i = 0, n = countFor(rng, variant, 5, 12); i < n; ++i) {
    SpillLoc loc;
    loc.addr = rich ? 0x100 + 4 * i : rng.next();
    loc.index = static_cast<uint8_t>(i);
    loc.kind = static_cast<uint8_t>(rich ? i % 6 : rng.below(13) == 0 ? 6 : rng.below(6));
    loc.name = makeText(rng, "spill_slot_", i);
    spill.locs.push_back(std::move(loc));
  }
  elf.spillInfo = std::move(spill);

  SWPInfo swp;
  for (uint32_t i = 0, n = countFor(rng, variant, 4, 20); i < n; ++i) {
    swp.locs.push_back(SWPLoc{rich ? 0x200 + 8 * i : rng.next()});
  }
  elf.swpInfo = std::move(swp);

  ControlFlowGraph cfg;
  for (uint32_t i = 0, n = countFor(rng, variant, 6, 30); i < n; ++i) {
    const uint32_t a = rich ? 16 * i : rng.next();
    cfg.edges.emplace_back(BasicBlockRange{a, a + 12},
                           BasicBlockRange{a + 16, a + 28});
  }
  elf.cfgInfo = std::move(cfg);

  SourceMap src;
  for (uint32_t i = 0, n = countFor(rng, variant, 3, 6); i < n; ++i) {
    std::vector<std::string> strings;
    // In the rich image the second source has an engaged, empty list.
    const uint32_t m = rich ? (i == 1 ? 0 : 3 + i) : rng.below(5);
    for (uint32_t k = 0; k < m; ++k) {
      strings.push_back(makeText(rng, "  x = compute_value(y); // line ", k));
    }
    src.emplace(i == 0 ? std::string("main.zc")
                       : makeText(rng, "lib/module_source_file_", i),
                std::move(strings));
  }
  elf.srcInfo = std::move(src);

  SymbolMap sym;
  for (uint32_t i = 0, n = countFor(rng, variant, 4, 8); i < n; ++i) {
    sym.emplace(makeText(rng, "symbol_", i),
                SymbolAddr{static_cast<uint8_t>(i), rich ? 0x1000 * i : rng.next()});
  }
  elf.symInfo = std::move(sym);

  elf.pmSize = rich ? 0x8000 : rng.next();
  elf.setVerifyInfo(rich ? "verified: 12 blocks, 3 loops, no hazards found"
                         : makeText(rng, "verify ", rng.below(100)));

  LatencyInfo latency;
  for (uint32_t i = 0, n = countFor(rng, variant, 5, 16); i < n; ++i) {
    LatencyInfoLoc loc;
    loc.addr = rich ? 0x300 + 4 * i : rng.next();
    loc.kind = static_cast<uint8_t>(i);
    loc.value0 = static_cast<uint8_t>(rng.next());
    loc.value1 = static_cast<uint8_t>(rng.next());
    loc.value2 = static_cast<uint8_t>(rng.next());
    loc.value3 = static_cast<uint8_t>(rng.next());
    latency.locs.push_back(loc);
  }
  elf.latencyInfo = std::move(latency);
  return elf;
}

std::vector<uint8_t> makeSampleImage(uint32_t variant) {
  ELF elf = makeSampleELF(variant);
  absl::optional<ELF::Image> image = elf.save();
  if (!image.has_value()) return {};
  return std::vector<uint8_t>(image->begin(), image->end());
}

bool sameDebugInfo(const ELF& a, const ELF& b) {
  return a.dbgID == b.dbgID && a.spillInfo == b.spillInfo &&
         a.swpInfo == b.swpInfo && a.cfgInfo == b.cfgInfo &&
         a.srcInfo == b.srcInfo && a.symInfo == b.symInfo &&
         a.pmSize == b.pmSize && a.verifyInfo == b.verifyInfo &&
         a.latencyInfo == b.latencyInfo;
}

uint32_t touchViews(const ELF& elf) {
  uint32_t sum = 0;
  if (elf.text.has_value()) {
    for (uint8_t b : *elf.text) sum = sum * 31 + b;
  }
  if (elf.commentInfo.has_value()) {
    for (absl::string_view line : *elf.commentInfo) {
      for (char c : line) sum = sum * 31 + static_cast<uint8_t>(c);
      sum += static_cast<uint32_t>(line.size());
    }
  }
  return sum;
}

}  // namespace testing
}  // namespace zelk_elf
