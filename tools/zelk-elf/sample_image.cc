#include "tools/zelk-elf/sample_image.h"

#include <cstdint>
#include <vector>

namespace zelk_elf {
namespace cli {
namespace {

constexpr uint16_t kMachineZelk = 0x5a4b;  // "ZK"
constexpr uint16_t kTypeExecutable = 2;

// Eight 32-bit instruction words of a summing loop, little-endian.
constexpr uint8_t kCode[] = {
    0x13, 0x00, 0x40, 0x10,  // 0x00 main: set up the frame
    0x23, 0x10, 0x08, 0x00,  // 0x04 spill r4
    0x37, 0x02, 0x00, 0x01,  // 0x08 load xs
    0x6f, 0x00, 0xc0, 0x00,  // 0x0c sum: loop head
    0x33, 0x05, 0xb5, 0x00,  // 0x10 acc += xs[i]
    0x63, 0x14, 0x05, 0xfe,  // 0x14 branch back
    0x03, 0x20, 0x08, 0x00,  // 0x18 reload r4
    0x67, 0x80, 0x00, 0x00,  // 0x1c return
};

}  // namespace

ELF makeSampleImage() {
  ELF elf;
  elf.setMachine(kMachineZelk);
  elf.setType(kTypeExecutable);
  elf.setEntry(0);
  elf.setText(kCode, 4);
  elf.setCommentInfo({"zelkcc 1.4.2 (zelk toolchain)", "-O2 -g -mcpu=zelk1"});

  elf.dbgID = DebugInfoID{1, 0x0102, 7};
  elf.spillInfo = SpillInfo{{
      {0x04, 0, 1, "r4"},
      {0x10, 1, 2, "acc"},
      {0x18, 0, 3, "r4"},
  }};
  elf.swpInfo = SWPInfo{{{0x0c}, {0x14}}};
  // Three blocks: entry, a self-looping body, exit.
  const BasicBlockRange entry{0x00, 0x0c};
  const BasicBlockRange body{0x0c, 0x18};
  const BasicBlockRange exit{0x18, 0x20};
  elf.cfgInfo = ControlFlowGraph{{{entry, body}, {body, body}, {body, exit}}};
  elf.srcInfo = SourceMap{
      {"main.zc", {"int main() {", "  return sum(xs, 4);", "}"}},
      {"sum.zc", {"for (i = 0; i < n; i++)", "  acc += xs[i];"}},
  };
  elf.symInfo = SymbolMap{
      {"main", {1, 0x00}},
      {"sum", {1, 0x0c}},
      {"xs", {2, 0x1000}},
  };
  elf.pmSize = 0x2000;
  elf.setVerifyInfo("verified: 3 blocks, 1 loop, no hazards");
  elf.latencyInfo = LatencyInfo{{
      {0x08, 1, 2, 0, 0, 0},
      {0x10, 2, 1, 1, 0, 0},
      {0x14, 3, 0, 0, 2, 1},
  }};
  return elf;
}

}  // namespace cli
}  // namespace zelk_elf
