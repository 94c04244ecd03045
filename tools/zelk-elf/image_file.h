// Loading an image file, with a reason when it does not load.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_IMAGE_FILE_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_IMAGE_FILE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "absl/types/optional.h"
#include "absl/types/span.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace cli {

// The file's bytes and the image loaded from them.
struct ImageFile {
  std::vector<uint8_t> bytes;
  ELF elf;
};

// Reads and loads `path`. Throws an image error "'PATH': reason" when the
// file cannot be read or does not load.
ImageFile loadImageFile(const std::string& path);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_IMAGE_FILE_H_
