// Construction, moving and the ELF header fields.
#include <memory>
#include <utility>

#include "elf/debug_fields.h"
#include "elf/impl.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {

ELF::ELF() : impl(std::make_unique<Impl>()) {}

// Member by member in declaration order: the image pointer changes hands,
// so the views keep pointing into the bytes it owns.
ELF::ELF(ELF&& other) noexcept = default;

// Not defaulted: assigning an object to itself keeps it whole.
ELF& ELF::operator=(ELF&& other) noexcept {
  if (this == &other) return *this;
  impl = std::move(other.impl);
  forEachDebugField(
      [&](size_t, const auto& field) { this->*field.member = std::move(other.*field.member); });
  commentInfo = std::move(other.commentInfo);
  text = std::move(other.text);
  return *this;
}

// Fields go in reverse declaration order, the image last: the views in
// `commentInfo` and `text` never outlive the bytes they point into.
ELF::~ELF() = default;

uint16_t ELF::getMachine() const { return impl->image.header().machine; }
void ELF::setMachine(uint16_t machine) { impl->image.header().machine = machine; }
uint16_t ELF::getType() const { return impl->image.header().type; }
void ELF::setType(uint16_t type) { impl->image.header().type = type; }
uint64_t ELF::getEntry() const { return impl->image.header().entry; }
void ELF::setEntry(uint64_t entry) { impl->image.setEntry(entry); }

}  // namespace zelk_elf
