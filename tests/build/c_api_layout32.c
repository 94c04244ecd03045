/* Offsets and sizes of the C records on the 32-bit target. Compiling this
 * file is the check. */
#include <stddef.h>

#include "zelk_elf/zelk_elf.h"

#define CHECK(type, size, a, at_a, b, at_b) \
  _Static_assert(                           \
      sizeof(type) == (size) && offsetof(type, a) == (at_a) && offsetof(type, b) == (at_b), #type)

CHECK(zelkELFDbgID, 8, id0, 4, id1, 6);
CHECK(zelkELFSpillLoc, 12, index, 4, kind, 8);
CHECK(zelkELFSWPLoc, 4, addr, 0, addr, 0);
CHECK(zelkELFBlockRange, 8, start, 0, end, 4);
CHECK(zelkELFCFGEdge, 16, first, 0, second, 8);
CHECK(zelkELFSpillInfo, 8, locs, 0, count, 4);
CHECK(zelkELFSWPInfo, 8, locs, 0, count, 4);
CHECK(zelkELFCFGInfo, 8, edges, 0, count, 4);
CHECK(zelkELFSrcList, 8, names, 0, count, 4);
CHECK(zelkELFSection, 8, data, 0, size, 4);
CHECK(zelkELFBin, 8, data, 0, size, 4);

/* Keeps the translation unit non-empty for -pedantic. */
int zelk_elf_layout32_checked(void) { return 1; }
