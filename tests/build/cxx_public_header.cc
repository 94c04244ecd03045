// A C++ program that includes only the public class header and links the
// shared library builds and runs.
#include <cstdio>

#include "zelk_elf/elf.h"

int main() {
  zelk_elf::ELF elf;
  elf.setMachine(0x1234);
  const uint8_t code[] = {1, 2, 3, 4};
  elf.setText(code, 4);
  absl::optional<zelk_elf::ELF::Image> saved = elf.save();
  if (!saved.has_value()) {
    std::fprintf(stderr, "save failed\n");
    return 1;
  }
  absl::optional<zelk_elf::ELF> loaded =
      zelk_elf::ELF::load(absl::MakeConstSpan(saved->data(), saved->size()));
  if (!loaded.has_value() || loaded->getMachine() != 0x1234 ||
      !loaded->text.has_value() || loaded->text->size() != 4) {
    std::fprintf(stderr, "round trip failed\n");
    return 1;
  }
  return 0;
}
