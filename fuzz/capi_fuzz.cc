// The C interface end to end, then the class's edits: no crash, every view on
// live bytes, and a saved image loads again.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "absl/strings/str_split.h"
#include "capi/handle.h"
#include "elf/internal.h"
#include "fuzz_checks.h"
#include "zelk_elf/zelk_elf.h"

namespace {

using zelk_elf::ELF;
using zelk_fuzz::check;
using zelk_fuzz::queryEverything;

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
