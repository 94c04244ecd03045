// The ".comment" section: NUL-terminated text lines.
#ifndef ZELK_ELF_ELF_COMMENT_H_
#define ZELK_ELF_ELF_COMMENT_H_

#include <cstdint>
#include <vector>

#include "absl/strings/string_view.h"
#include "engine/image.h"

namespace zelk_elf {

// The lines of the first ".comment" section, as views into its data: the data
// split at every NUL, empty pieces kept (so data ending in NUL yields a last,
// empty line). No lines when there is no such section or it holds no bytes.
// The views live as long as that section's data.
std::vector<absl::string_view> loadCommentSection(const engine::Image& image);

// The section data that stores `lines`: each non-empty line followed by a
// NUL; empty lines are dropped because the format cannot represent them.
std::vector<uint8_t> encodeCommentLines(const std::vector<absl::string_view>& lines);

}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_COMMENT_H_
