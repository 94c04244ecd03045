// Reading inputs and writing outputs so that a failed run leaves no file.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_FILE_IO_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_FILE_IO_H_

#include <cstdint>
#include <string>
#include <vector>

#include "absl/types/span.h"

namespace zelk_elf {
namespace cli {

// The whole file. Throws an image error naming the path and the reason.
std::vector<uint8_t> readFile(const std::string& path);

// Writes `bytes` to a temporary file next to `path` and renames it over
// `path`, so readers never see a partial image and a failure leaves nothing
// behind. Throws an image error on failure.
void writeFileAtomically(const std::string& path,
                         absl::Span<const uint8_t> bytes);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_FILE_IO_H_
