/* The C interface header compiles as strict C99 on its own, and a C program
 * links against the library and calls it. */
#include <string.h>

#include "zelk_elf/zelk_elf.h"

int main(void) {
  static const uint8_t not_elf[16] = {0x7F, 'E', 'L', 'X'};
  uint32_t major = 0, minor = 0, patch = 0;
  const char* text = NULL;
  zelkELFBin bin = {NULL, 0};
  zelkELFVersion(&major, &minor, &patch, &text);
  zelkELFFreeBin(bin);
  return major == 1 && minor == 2 && patch == 0 && text != NULL && strcmp(text, "unknown") == 0 &&
                 zelkELFLoad(not_elf, sizeof(not_elf)) == NULL
             ? 0
             : 1;
}
