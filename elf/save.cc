// Saving: debug fields into their sections, then the image into bytes.
#include <ios>
#include <ostream>
#include <sstream>
#include <string>

#include "elf/debug_fields.h"
#include "elf/free_seek_buf.h"
#include "elf/impl.h"
#include "elf/internal.h"

namespace zelk_elf {

absl::StatusOr<ELF::Image> saveWithReason(ELF& elf) noexcept {
  try {
    if (absl::Status s = writeDebugFields(elf); !s.ok()) return s;
    std::string bytes;
    {
      FreeSeekBuf buffer;
      std::ostringstream stream(std::ios_base::binary);
      // Every write and positioning goes to `buffer`; this also clears the
      // stream state.
      static_cast<std::ostream&>(stream).rdbuf(&buffer);
      if (absl::Status s = elf.impl->image.save(stream); !s.ok()) return s;
      bytes = buffer.str();
    }
    return ELF::Image(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
                      tolva_lib::mem::SystemAllocator());
  } catch (...) {
    return outOfMemory("saving");
  }
}

absl::optional<ELF::Image> ELF::save() {
  absl::StatusOr<Image> image = saveWithReason(*this);
  if (!image.ok()) return absl::nullopt;
  return absl::optional<Image>(std::move(*image));
}

}  // namespace zelk_elf
