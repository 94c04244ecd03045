#include "tools/zelk-elf/image_file.h"

#include <utility>

#include "absl/strings/str_cat.h"
#include "elf/internal.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/file_io.h"

namespace zelk_elf {
namespace cli {

ImageFile loadImageFile(const std::string& path) {
  std::vector<uint8_t> bytes = readFile(path);
  absl::StatusOr<ELF> elf = loadWithReason(bytes);
  if (!elf.ok()) {
    throw imageError(absl::StrCat("'", path, "': ", elf.status().message()));
  }
  return ImageFile{std::move(bytes), *std::move(elf)};
}

}  // namespace cli
}  // namespace zelk_elf
