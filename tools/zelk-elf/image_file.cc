#include "tools/zelk-elf/image_file.h"

#include <algorithm>
#include <utility>

#include "absl/strings/str_cat.h"
#include "debuginfo/diagnose.h"
#include "engine/image.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/file_io.h"

namespace zelk_elf {
namespace cli {

absl::optional<std::string> explainLoadFailure(
    absl::Span<const uint8_t> bytes) {
  static constexpr uint8_t kMagic[4] = {0x7f, 'E', 'L', 'F'};
  if (bytes.size() < 4 || !std::equal(kMagic, kMagic + 4, bytes.begin())) {
    return std::string("not an ELF image (no ELF magic number)");
  }
  if (bytes.size() < 16) {
    return absl::StrCat("malformed ELF header (only ", bytes.size(),
                        " bytes of identification)");
  }
  uint8_t elf_class = bytes[4];
  uint8_t encoding = bytes[5];
  if (elf_class != engine::kClass32 && elf_class != engine::kClass64) {
    return absl::StrCat("malformed ELF header (unknown class ", elf_class, ")");
  }
  if (encoding != engine::kDataLsb && encoding != engine::kDataMsb) {
    return absl::StrCat("malformed ELF header (unknown byte order ", encoding,
                        ")");
  }
  engine::Image image;
  if (!image.load(bytes)) {
    return std::string("malformed ELF header or section/segment tables");
  }
  if (absl::optional<DebugDecodeFailure> failure =
          diagnoseDebugSections(image)) {
    return absl::StrCat("section ", failure->section,
                        " fails to decode at payload offset ", failure->offset,
                        " (payload of ", failure->payload_size, " bytes)");
  }
  if (!ELF::load(bytes)) return std::string("the image does not load");
  return absl::nullopt;
}

ImageFile loadImageFile(const std::string& path) {
  std::vector<uint8_t> bytes = readFile(path);
  absl::optional<ELF> elf = ELF::load(bytes);
  if (!elf) {
    absl::optional<std::string> reason = explainLoadFailure(bytes);
    throw imageError(absl::StrCat(
        "'", path, "': ", reason ? *reason : "the image does not load"));
  }
  return ImageFile{std::move(bytes), *std::move(elf)};
}

}  // namespace cli
}  // namespace zelk_elf
