// What the whole-image fuzz targets share, and the allocation tests' queries.
#ifndef ZELK_ELF_FUZZ_FUZZ_CHECKS_H_
#define ZELK_ELF_FUZZ_FUZZ_CHECKS_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "absl/container/flat_hash_set.h"
#include "capi/handle.h"
#include "engine/image.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_fuzz {

// Hostile layouts may rightly save to gigabytes; larger saves are skipped.
constexpr uint64_t kMaxSavedBytes = uint64_t{16} << 20;

inline void check(bool ok, const char* invariant) {
  if (ok) return;
  std::fprintf(stderr, "invariant broken: %s\n", invariant);
  std::abort();
}

inline bool fitsTheBound(const zelk_elf::engine::Image& image) {
  return image.savedSize().value_or(kMaxSavedBytes + 1) <= kMaxSavedBytes;
}

// Whether a segment claims bytes past the saved file's end (a PT_PHDR over
// wide entries, the file ending with the last record): it does not reload.
inline bool segmentPastEnd(const zelk_elf::engine::Image& image, uint64_t file_size) {
  for (const zelk_elf::engine::Segment& g : image.segments()) {
    if (g.header.type != 0 && g.header.filesz != 0 &&
        g.header.offset + g.header.filesz > file_size) {
      return true;
    }
  }
  return false;
}

// Runs every query and reads every byte and string it hands out.
inline uint32_t queryEverything(zelkELFHandle h) {
  uint32_t sum = 0;
  zelkELFDbgID id;
  if (zelkELFGetDbgID(h, &id) == 1) sum += id.kind + id.id0 + id.id1;
  const zelkELFSpillInfo spill = zelkELFGetSpillInfo(h);
  for (size_t i = 0; i < spill.count; ++i) {
    check(spill.locs[i].kind <= 5, "spill kinds are defined");
    sum += spill.locs[i].addr + spill.locs[i].index;
  }
  const zelkELFSWPInfo swp = zelkELFGetSWPInfo(h);
  for (size_t i = 0; i < swp.count; ++i) sum += swp.locs[i].addr;
  const zelkELFCFGInfo cfg = zelkELFGetCFGInfo(h);
  for (size_t i = 0; i < cfg.count; ++i) sum += cfg.edges[i].first.start ^ cfg.edges[i].second.end;
  const zelkELFSrcList names = zelkELFGetSrcNameList(h);
  for (size_t i = 0; i < names.count; ++i) {
    const zelkELFSrcList strings = zelkELFGetSrcList(h, names.names[i]);
    for (size_t k = 0; k < strings.count; ++k) sum += std::strlen(strings.names[k]);
    zelkELFFreeSrcList(strings);
  }
  zelkELFFreeSpillInfo(spill), zelkELFFreeSWPInfo(swp), zelkELFFreeCFGInfo(cfg);
  zelkELFFreeSrcList(names);
  sum += zelkELFGetPMSize(h);
  if (const char* verify = zelkELFGetVerifyInfo(h)) sum += std::strlen(verify);
  // A name finds the same section however often it repeats, and sections may
  // all claim the same bytes: each distinct name is read once, and in full
  // only up to a fixed total (past it, the first and last bytes), so the check
  // itself never grows with the square of the input.
  const zelk_elf::ELF& elf = *zelk_elf::capi::toELF(h);
  size_t budget = size_t{1} << 26;
  absl::flat_hash_set<std::string> seen;
  for (const std::string& name : elf.getSectionNames()) {
    if (!seen.insert(name).second) continue;
    const zelkELFSection section = zelkELFGetSection(h, name.c_str());
    sum += zelkELFGetSectionSize(h, name.c_str());
    if (section.size == 0) continue;
    if (section.size <= budget) {
      budget -= section.size;
      for (size_t i = 0; i < section.size; ++i) sum += section.data[i];
    } else {
      sum += section.data[0] + section.data[section.size - 1];
    }
  }
  return sum;
}

}  // namespace zelk_fuzz

#endif  // ZELK_ELF_FUZZ_FUZZ_CHECKS_H_
