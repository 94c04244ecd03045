/* Offsets and sizes of the C records on the 32-bit target. Compiling this
 * file is the check. */
#include <stddef.h>

#include "zelk_elf/zelk_elf.h"

#define CHECK_SIZE(type, size) \
  _Static_assert(sizeof(type) == (size), "size of " #type)
#define CHECK_OFFSET(type, field, offset) \
  _Static_assert(offsetof(type, field) == (offset), #type "." #field)

CHECK_SIZE(zelkELFDbgID, 8);
CHECK_OFFSET(zelkELFDbgID, kind, 0);
CHECK_OFFSET(zelkELFDbgID, id0, 4);
CHECK_OFFSET(zelkELFDbgID, id1, 6);

CHECK_SIZE(zelkELFSpillLoc, 12);
CHECK_OFFSET(zelkELFSpillLoc, addr, 0);
CHECK_OFFSET(zelkELFSpillLoc, index, 4);
CHECK_OFFSET(zelkELFSpillLoc, kind, 8);

CHECK_SIZE(zelkELFSWPLoc, 4);
CHECK_OFFSET(zelkELFSWPLoc, addr, 0);

CHECK_SIZE(zelkELFBlockRange, 8);
CHECK_OFFSET(zelkELFBlockRange, start, 0);
CHECK_OFFSET(zelkELFBlockRange, end, 4);

CHECK_SIZE(zelkELFCFGEdge, 16);
CHECK_OFFSET(zelkELFCFGEdge, first, 0);
CHECK_OFFSET(zelkELFCFGEdge, second, 8);

CHECK_SIZE(zelkELFSpillInfo, 8);
CHECK_OFFSET(zelkELFSpillInfo, locs, 0);
CHECK_OFFSET(zelkELFSpillInfo, count, 4);
CHECK_SIZE(zelkELFSWPInfo, 8);
CHECK_OFFSET(zelkELFSWPInfo, locs, 0);
CHECK_OFFSET(zelkELFSWPInfo, count, 4);
CHECK_SIZE(zelkELFCFGInfo, 8);
CHECK_OFFSET(zelkELFCFGInfo, edges, 0);
CHECK_OFFSET(zelkELFCFGInfo, count, 4);
CHECK_SIZE(zelkELFSrcList, 8);
CHECK_OFFSET(zelkELFSrcList, names, 0);
CHECK_OFFSET(zelkELFSrcList, count, 4);
CHECK_SIZE(zelkELFSection, 8);
CHECK_OFFSET(zelkELFSection, data, 0);
CHECK_OFFSET(zelkELFSection, size, 4);
CHECK_SIZE(zelkELFBin, 8);
CHECK_OFFSET(zelkELFBin, data, 0);
CHECK_OFFSET(zelkELFBin, size, 4);

/* Keeps the translation unit non-empty for -pedantic. */
int zelk_elf_layout32_checked(void) { return 1; }
