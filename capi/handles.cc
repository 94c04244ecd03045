// Handles and the interface version.
#include <memory>
#include <utility>

#include "capi/handle.h"
#include "capi/version.h"

using zelk_elf::ELF;
using zelk_elf::capi::toELF;
using zelk_elf::capi::toHandle;

namespace {

// Static storage: callers may keep the pointer forever.
constexpr char kVersionText[] = "unknown";

}  // namespace

extern "C" {

zelkELFHandle zelkELFLoad(const uint8_t* data, size_t size) {
  try {
    absl::optional<ELF> loaded = ELF::load(absl::MakeConstSpan(data, size));
    if (!loaded.has_value()) return nullptr;
    // Moving hands over the image without copying it.
    return toHandle(new ELF(std::move(*loaded)));
  } catch (...) {
    return nullptr;
  }
}

// Deleting a null pointer does nothing, so a null handle is accepted.
void zelkELFFree(zelkELFHandle handle) { delete toELF(handle); }

void zelkELFVersion(uint32_t* major, uint32_t* minor, uint32_t* patch,
                    const char** text) {
  if (major != nullptr) *major = ZELK_ELF_VERSION_MAJOR;
  if (minor != nullptr) *minor = ZELK_ELF_VERSION_MINOR;
  if (patch != nullptr) *patch = ZELK_ELF_VERSION_PATCH;
  if (text != nullptr) *text = kVersionText;
}

}  // extern "C"
