// Built against the installed library only: a section saved through the
// class reads back through the C interface.
#include "zelk_elf/elf.h"
#include "zelk_elf/zelk_elf.h"

int main() {
  zelk_elf::ELF elf;
  elf.setSection(".consumer", {1, 2, 3});
  const auto saved = elf.save();
  zelkELFHandle h = saved ? zelkELFLoad(saved->data(), saved->size()) : nullptr;
  const bool ok =
      zelkELFGetSectionSize(h, ".consumer") == 3 && zelkELFGetSection(h, ".consumer").data[2] == 3;
  zelkELFFree(h);
  return ok ? 0 : 1;
}
