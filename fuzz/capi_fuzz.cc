// The C interface end to end, then the class's edits: no crash, every view on
// live bytes, and a saved image loads again.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "absl/container/flat_hash_set.h"
#include "absl/strings/str_split.h"
#include "capi/handle.h"
#include "elf/internal.h"
#include "fuzz_checks.h"
#include "zelk_elf/zelk_elf.h"

namespace {

using zelk_elf::ELF;
using zelk_fuzz::check;

// Runs every query and reads every byte and string it hands out.
uint32_t queryEverything(zelkELFHandle h) {
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
    for (size_t k = 0; k < strings.count; ++k) sum += std::string(strings.names[k]).size();
    zelkELFFreeSrcList(strings);
  }
  zelkELFFreeSpillInfo(spill), zelkELFFreeSWPInfo(swp), zelkELFFreeCFGInfo(cfg);
  zelkELFFreeSrcList(names);
  sum += zelkELFGetPMSize(h);
  if (const char* verify = zelkELFGetVerifyInfo(h)) sum += std::string(verify).size();
  // A name finds the same section however often it repeats, and sections may
  // all claim the same bytes: each distinct name is read once, and in full
  // only up to a fixed total (past it, the first and last bytes), so the check
  // itself never grows with the square of the input.
  const ELF& elf = *zelk_elf::capi::toELF(h);
  size_t budget = size_t{1} << 26;
  absl::flat_hash_set<std::string> seen;
  for (const std::string& name : elf.getSectionNames()) {
    if (!seen.insert(name).second) continue;
    const zelkELFSection section = zelkELFGetSection(h, name.c_str());
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

// Saves within the bound; the image must load again.
void saveAndReload(zelkELFHandle h) {
  if (!zelk_fuzz::fitsTheBound(zelk_elf::imageOf(*zelk_elf::capi::toELF(h)))) return;
  const zelkELFBin bin = zelkELFSave(h);
  check(bin.data != nullptr || bin.size == 0, "an empty save has no size");
  if (bin.data == nullptr) return;
  zelkELFHandle again = zelkELFLoad(bin.data, bin.size);
  check(again != nullptr ||
            zelk_fuzz::segmentPastEnd(zelk_elf::imageOf(*zelk_elf::capi::toELF(h)), bin.size),
        "a saved image loads again");
  if (again != nullptr) queryEverything(again);
  zelkELFFree(again);
  zelkELFFreeBin(bin);
}

// The class's edits with pieces of the input; the views stay on live bytes.
void edit(ELF& elf, const uint8_t* data, size_t size) {
  const size_t third = size / 3;
  const std::string comment(reinterpret_cast<const char*>(data) + third,
                            std::min<size_t>(third, 256));
  elf.setSection(".zelk.fuzz.edit", absl::MakeConstSpan(data, std::min<size_t>(size, 64)));
  elf.setText(absl::MakeConstSpan(data, third), size == 0 ? 1u : 1u << (data[0] % 16));
  elf.setCommentInfo(absl::StrSplit(comment, '\n'));
  // The image's own bytes given back, even the name table's, which adding a
  // section replaces.
  const zelk_elf::engine::Image& image = zelk_elf::imageOf(elf);
  const size_t table = image.header().shstrndx;
  if (table != 0 && table < image.sections().size()) {
    const absl::Span<const uint8_t> names = image.sections()[table].bytes();
    const std::vector<uint8_t> before(names.begin(), names.end());
    elf.setSection(".zelk.fuzz.names", names);
    const absl::Span<const uint8_t> copied = elf.getSection(".zelk.fuzz.names");
    check(std::equal(copied.begin(), copied.end(), before.begin(), before.end()),
          "a section set from the name table holds its bytes");
  }
  check(elf.text && elf.text->data() == elf.getSection(".text").data(), "text views .text");
  check(!elf.commentInfo || elf.commentInfo->empty() ||
            elf.commentInfo->front().data() ==
                reinterpret_cast<const char*>(elf.getSection(".comment").data()),
        "comment lines view .comment");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zelkELFHandle h = zelkELFLoad(data, size);
  if (h == nullptr) return 0;
  queryEverything(h);
  saveAndReload(h);
  edit(*zelk_elf::capi::toELF(h), data, size);
  saveAndReload(h);
  zelkELFFree(h);
  return 0;
}
