// Fuzzes the C interface end to end: load, every query and free, save and
// reload (which must keep every decoded value), then class-level edits of
// the same object and another save.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "capi/handle.h"
#include "elf/internal.h"
#include "zelk_elf/elf.h"
#include "zelk_elf/zelk_elf.h"

namespace {

using zelk_elf::ELF;

// Saving lays sections out at their own alignment and, inside segments, at
// the distances their addresses give, and fills sections cut short at load
// up to their recorded size; a hostile image can claim gigabytes there.
// Such outputs are legitimate, but too big to produce on every run. The
// bound is low because reloading costs more than the image: every NUL of a
// ".comment" section becomes a 16-byte line view.
constexpr size_t kMaxSavedBytes = size_t{16} << 20;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "capi_fuzz: invariant broken: %s\n", what);
  std::abort();
}

// Whether the image, saved as it stands, stays below kMaxSavedBytes, from a
// layout of a copy of its tables.
bool fitsTheBound(const ELF& elf) {
  const absl::StatusOr<uint64_t> size = zelk_elf::imageOf(elf).savedSize();
  return size.ok() && *size <= kMaxSavedBytes;
}

// Runs every query and reads every byte and string it hands out.
uint32_t queryEverything(zelkELFHandle h) {
  uint32_t sum = 0;
  zelkELFDbgID id;
  if (zelkELFGetDbgID(h, &id) == 1) sum += id.kind + id.id0 + id.id1;

  zelkELFSpillInfo spill = zelkELFGetSpillInfo(h);
  for (size_t i = 0; i < spill.count; ++i) {
    if (spill.locs[i].kind > 5) fail("spill kind above 5 reported");
    sum += spill.locs[i].addr + spill.locs[i].index;
  }
  zelkELFFreeSpillInfo(spill);

  zelkELFSWPInfo swp = zelkELFGetSWPInfo(h);
  for (size_t i = 0; i < swp.count; ++i) sum += swp.locs[i].addr;
  zelkELFFreeSWPInfo(swp);

  zelkELFCFGInfo cfg = zelkELFGetCFGInfo(h);
  for (size_t i = 0; i < cfg.count; ++i) {
    sum += cfg.edges[i].first.start ^ cfg.edges[i].second.end;
  }
  zelkELFFreeCFGInfo(cfg);

  zelkELFSrcList names = zelkELFGetSrcNameList(h);
  for (size_t i = 0; i < names.count; ++i) {
    zelkELFSrcList strings = zelkELFGetSrcList(h, names.names[i]);
    for (size_t k = 0; k < strings.count; ++k) {
      sum += static_cast<uint32_t>(std::string(strings.names[k]).size());
    }
    zelkELFFreeSrcList(strings);
  }
  zelkELFFreeSrcList(names);

  sum += zelkELFGetPMSize(h);
  if (const char* verify = zelkELFGetVerifyInfo(h)) {
    sum += static_cast<uint32_t>(std::string(verify).size());
  }

  const ELF& elf = *zelk_elf::capi::toELF(h);
  for (const std::string& name : elf.getSectionNames()) {
    const zelkELFSection section = zelkELFGetSection(h, name.c_str());
    for (size_t i = 0; i < section.size; ++i) sum += section.data[i];
    sum += static_cast<uint32_t>(zelkELFGetSectionSize(h, name.c_str()));
  }
  return sum;
}

// Whether saving keeps every section's name. Names are read once at load;
// on reload they are read again from the section-name table, which must
// therefore hold all of them whole (a name that runs past the table's bytes
// would run into names appended later), and must be replaced neither by the
// rewrite of the debug sections nor by the edits.
bool namesStable(const ELF& elf, const std::vector<std::string>& edited) {
  const zelk_elf::engine::Image& image = zelk_elf::imageOf(elf);
  const size_t table = image.header().shstrndx;
  if (table == 0 || table >= image.sections().size()) return false;
  const zelk_elf::engine::Section& strings = image.sections()[table];
  // Sections of these types hold no bytes once loaded again.
  if (strings.header.type == zelk_elf::engine::kShtNobits ||
      strings.header.type == zelk_elf::engine::kShtNull) {
    return false;
  }
  const size_t held = strings.bytes().size();
  if (held != strings.header.size) return false;
  if (held != 0 && strings.bytes()[held - 1] != 0) return false;
  for (size_t i = 0; i < image.sections().size(); ++i) {
    const uint32_t offset = image.sections()[i].header.name;
    if (offset >= held && !(held == 0 && offset == 0)) return false;
  }
  const std::string name(strings.name);
  if (name.compare(0, 10, ".zelk.dbg.") == 0) return false;
  return std::find(edited.begin(), edited.end(), name) == edited.end();
}

// Whether a segment of the laid-out image claims bytes past the end of the
// saved file: a PT_PHDR segment covers whole program header entries, while
// the file ends with the last record when the entries are wider. Such an
// image does not load again: the layout rules make it so.
bool segmentPastEnd(const ELF& elf, uint64_t file_size) {
  const zelk_elf::engine::Image& image = zelk_elf::imageOf(elf);
  for (size_t i = 0; i < image.segments().size(); ++i) {
    const zelk_elf::engine::Segment& g = image.segments()[i];
    if (g.header.type != 0 && g.header.filesz != 0 &&
        g.header.offset + g.header.filesz > file_size) {
      return true;
    }
  }
  return false;
}

bool sameDebugInfo(const ELF& a, const ELF& b) {
  return a.dbgID == b.dbgID && a.spillInfo == b.spillInfo &&
         a.swpInfo == b.swpInfo && a.cfgInfo == b.cfgInfo &&
         a.srcInfo == b.srcInfo && a.symInfo == b.symInfo &&
         a.pmSize == b.pmSize && a.verifyInfo == b.verifyInfo &&
         a.latencyInfo == b.latencyInfo;
}

// Save through the C interface; the reload must succeed and decode the same.
void saveAndReload(zelkELFHandle h) {
  const ELF& elf = *zelk_elf::capi::toELF(h);
  if (!fitsTheBound(*zelk_elf::capi::toELF(h))) return;
  zelkELFBin bin = zelkELFSave(h);
  if (bin.data == nullptr) {
    if (bin.size != 0) fail("empty save with a size");
    return;
  }
  zelkELFHandle again = zelkELFLoad(bin.data, bin.size);
  if (again == nullptr) {
    if (!segmentPastEnd(elf, bin.size)) fail("saved image does not load");
    zelkELFFreeBin(bin);
    return;
  }
  if (namesStable(elf, {}) &&
      !sameDebugInfo(elf, *zelk_elf::capi::toELF(again))) {
    fail("reload decodes other debug information");
  }
  queryEverything(again);
  zelkELFFree(again);
  zelkELFFreeBin(bin);
}

// Class-level edits with pieces of the input, then a save of the result.
void editAndSave(ELF& elf, const uint8_t* data, size_t size) {
  const size_t third = size / 3;
  const std::vector<uint8_t> code(data, data + third);
  const std::string comment(reinterpret_cast<const char*>(data) + third,
                            std::min<size_t>(third, 256));
  const unsigned align = size == 0 ? 1u : 1u << (data[0] % 16);
  // Judged on the table as loaded: the edits append names to it.
  const bool names_stable =
      namesStable(elf, {".text", ".comment", ".zelk.fuzz.edit"});

  elf.setSection(".zelk.fuzz.edit", absl::MakeConstSpan(data, std::min<size_t>(size, 64)));
  elf.setText(code, align);
  std::vector<absl::string_view> lines;
  for (size_t start = 0; start <= comment.size();) {
    const size_t end = std::min(comment.find('\n', start), comment.size());
    lines.push_back(absl::string_view(comment).substr(start, end - start));
    start = end + 1;
  }
  elf.setCommentInfo(lines);
  // The views must stay on live bytes whatever the image looked like.
  uint32_t sum = 0;
  if (elf.text) for (uint8_t b : *elf.text) sum += b;
  if (elf.commentInfo) {
    for (absl::string_view line : *elf.commentInfo) sum += line.size();
  }
  (void)sum;

  if (!fitsTheBound(elf)) return;
  absl::optional<ELF::Image> image = elf.save();
  if (!image.has_value()) return;
  absl::optional<ELF> reloaded =
      ELF::load(absl::MakeConstSpan(image->data(), image->size()));
  if (!names_stable) return;
  if (!reloaded.has_value()) {
    if (!segmentPastEnd(elf, image->size())) fail("edited image does not load");
    return;
  }
  if (!sameDebugInfo(elf, *reloaded)) fail("edit changed debug information");
  if (elf.getSectionNames() != reloaded->getSectionNames()) {
    fail("edited image has other section names");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zelkELFHandle h = zelkELFLoad(data, size);
  if (h == nullptr) return 0;
  queryEverything(h);
  saveAndReload(h);
  editAndSave(*zelk_elf::capi::toELF(h), data, size);
  zelkELFFree(h);
  return 0;
}
