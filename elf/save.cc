// Saving: debug fields into their sections, then the image into bytes.
#include <ios>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "elf/debug_fields.h"
#include "elf/free_seek_buf.h"
#include "elf/impl.h"
#include "elf/internal.h"

namespace zelk_elf {

absl::StatusOr<ELF::Image> saveWithReason(ELF& elf) noexcept {
  try {
    if (absl::Status s = writeDebugFields(elf); !s.ok()) return s;
    engine::Image& image = elf.impl->image;
    const absl::StatusOr<uint64_t> size = image.layOut();
    if (!size.ok()) return size.status();
    // The layout knows the file's size, so the stream writes into one buffer
    // made at that size, zeros where nothing is written: it never grows and
    // is copied once, into the result.
    std::vector<char> bytes(static_cast<size_t>(*size));
    {
      FreeSeekBuf buffer;
      buffer.pubsetbuf(bytes.data(), static_cast<std::streamsize>(bytes.size()));
      std::ostringstream stream(std::ios_base::binary);
      // Every write and positioning goes to `buffer`; this also clears the
      // stream state.
      static_cast<std::ostream&>(stream).rdbuf(&buffer);
      if (absl::Status s = image.write(stream); !s.ok()) return s;
      // The last run ends the file; anything else means bytes went past the
      // buffer, and the image would come out cut short.
      if (stream.tellp() != static_cast<std::streamoff>(bytes.size())) {
        return absl::InternalError("the written image does not end where its layout does");
      }
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
