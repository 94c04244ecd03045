// Saving: debug fields into their sections, then the image into bytes.
#include <ios>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>

#include "absl/strings/str_cat.h"
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
    // made at that size: it never grows and is copied once, into the result.
    // The engine writes every byte of it, the gaps as zeros.
    const size_t length = static_cast<size_t>(*size);
    const tolva_lib::mem::SystemAllocator memory;
    const std::unique_ptr<char, void (*)(char*)> bytes(
        static_cast<char*>(memory.allocate(length)),
        [](char* p) { tolva_lib::mem::SystemAllocator().deallocate(p); });
    {
      FreeSeekBuf buffer;
      buffer.pubsetbuf(bytes.get(), static_cast<std::streamsize>(length));
      if (!buffer.writesInto(bytes.get())) {
        // Otherwise the result would be bytes nobody wrote.
        return absl::ResourceExhaustedError(
            absl::StrCat("the stream buffer cannot hold an image of ", length, " bytes"));
      }
      std::ostringstream stream(std::ios_base::binary);
      // Every write and positioning goes to `buffer`; this also clears the
      // stream state.
      static_cast<std::ostream&>(stream).rdbuf(&buffer);
      if (absl::Status s = image.write(stream); !s.ok()) return s;
      // The last run ends the file; anything else means bytes went past the
      // buffer, and the image would come out cut short.
      if (stream.tellp() != static_cast<std::streamoff>(length)) {
        return absl::InternalError("the written image does not end where its layout does");
      }
    }
    return ELF::Image(reinterpret_cast<const uint8_t*>(bytes.get()), length, memory);
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
