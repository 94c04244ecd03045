// A C++ program that includes only the public class header and links the
// shared library builds and runs.
#include "zelk_elf/elf.h"

int main() {
  zelk_elf::ELF elf;
  elf.setMachine(0x1234);
  absl::optional<zelk_elf::ELF::Image> saved = elf.save();
  return saved && zelk_elf::ELF::load(*saved)->getMachine() == 0x1234 ? 0 : 1;
}
