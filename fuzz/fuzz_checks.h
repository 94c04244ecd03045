// What the whole-image fuzz targets share.
#ifndef ZELK_ELF_FUZZ_FUZZ_CHECKS_H_
#define ZELK_ELF_FUZZ_FUZZ_CHECKS_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "engine/image.h"

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

}  // namespace zelk_fuzz

#endif  // ZELK_ELF_FUZZ_FUZZ_CHECKS_H_
