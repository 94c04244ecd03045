// ELF::save: debug fields into their sections, then the image into bytes.
#include <ios>
#include <ostream>
#include <sstream>
#include <string>

#include "debuginfo/debug_sections.h"
#include "elf/free_seek_buf.h"
#include "elf/impl.h"
#include "elf/views.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

absl::optional<ELF::Image> ELF::save() {
  try {
    engine::Image& image = impl->image;
    const size_t section_count = image.sectionCount();
    bool written = false;
    try {
      written = writeDebugSections(*this, image);
    } catch (...) {
      refreshNameTableView(*this);
      throw;
    }
    // New debug sections put their names into the section-name table.
    if (image.sectionCount() != section_count) refreshNameTableView(*this);
    if (!written) return absl::nullopt;

    std::string bytes;
    {
      FreeSeekBuf buffer;
      std::ostringstream stream(std::ios_base::binary);
      // Redirect every write and positioning to `buffer`; this also clears
      // the stream state.
      static_cast<std::ostream&>(stream).rdbuf(&buffer);
      // A stream that failed while sections were written means a truncated
      // image; the engine's own result may not reflect that.
      if (!image.save(stream) || !stream.good()) return absl::nullopt;
      bytes = buffer.str();
    }
    return Image(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
                 tolva_lib::mem::SystemAllocator());
  } catch (...) {
    return absl::nullopt;
  }
}

}  // namespace zelk_elf
