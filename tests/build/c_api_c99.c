/* The C interface header compiles as strict C99 on its own, and a C program
 * links against the library. Exit status 0 means every check passed. */
#include "zelk_elf/zelk_elf.h"

#include <stdio.h>

int main(void) {
  uint32_t major = 0, minor = 0, patch = 0;
  const char* text = NULL;
  zelkELFHandle handle;
  zelkELFSection section;
  zelkELFBin bin = {NULL, 0};
  zelkELFSpillInfo spill = {NULL, 0};
  zelkELFSrcList list = {NULL, 0};
  static const uint8_t not_elf[16] = {0x7F, 'E', 'L', 'X'};

  zelkELFVersion(&major, &minor, &patch, &text);
  if (major != 1 || minor != 2 || patch != 0 || text == NULL) {
    fprintf(stderr, "bad version\n");
    return 1;
  }
  handle = zelkELFLoad(not_elf, sizeof(not_elf));
  if (handle != NULL) {
    fprintf(stderr, "accepted a non-image\n");
    zelkELFFree(handle);
    return 1;
  }
  section.data = NULL;
  section.size = 0;
  (void)section;
  zelkELFFreeBin(bin);
  zelkELFFreeSpillInfo(spill);
  zelkELFFreeSrcList(list);
  zelkELFFree(NULL);
  if (zelkELFGetPMSize(NULL) != 0 || zelkELFGetVerifyInfo(NULL) != NULL) {
    fprintf(stderr, "null handle not treated as absent\n");
    return 1;
  }
  return 0;
}
