// A tiny program built against the installed library only: creates an image,
// adds a section, saves, reloads through the C interface and checks both.
#include <cstdio>
#include <cstring>

#include "zelk_elf/elf.h"
#include "zelk_elf/zelk_elf.h"

int main() {
  zelk_elf::ELF elf;
  const uint8_t bytes[] = {1, 2, 3};
  elf.setSection(".consumer", bytes);
  auto saved = elf.save();
  if (!saved) return 1;
  zelkELFHandle h = zelkELFLoad(saved->data(), saved->size());
  if (h == nullptr) return 2;
  zelkELFSection s = zelkELFGetSection(h, ".consumer");
  int ok = s.size == 3 && std::memcmp(s.data, bytes, 3) == 0;
  zelkELFFree(h);
  const char* text = nullptr;
  uint32_t major = 0;
  zelkELFVersion(&major, nullptr, nullptr, &text);
  std::printf("consumer: %s, version %u (%s)\n", ok ? "ok" : "MISMATCH", major, text);
  return ok ? 0 : 3;
}
