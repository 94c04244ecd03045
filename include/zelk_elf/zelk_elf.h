/* zelk_elf C interface: opaque handles over zelk_elf::ELF and plain records.
 *
 * Conventions: no function lets an exception or error escape; failure and
 * absent information both give the empty result (a null handle, a null
 * pointer with a count of 0, 0, or nothing). Arrays handed out are malloc'ed
 * and belong to the caller, who releases them with the matching
 * zelkELFFree... function.
 *
 * Pointers into the handle:
 * - Source strings (zelkELFGetSrcList, zelkELFGetSrcNameList) and the
 *   verify-info text stay valid until the handle is freed.
 * - The bytes of a section (zelkELFGetSection) stay valid until the first of:
 *   zelkELFSetSection on that section; zelkELFSetSection of a name the image
 *   does not hold, which adds a section and so replaces the bytes of the
 *   section-name table (".shstrtab"); zelkELFSave, which rewrites every
 *   ".zelk.dbg." section whose value the handle holds; zelkELFFree.
 * Passing such bytes back into the same handle is safe: zelkELFSetSection
 * copies them before it replaces anything. */
#ifndef ZELK_ELF_ZELK_ELF_H_
#define ZELK_ELF_ZELK_ELF_H_

#include <stddef.h>
#include <stdint.h>

#if defined(ZELK_ELF_BUILDING)
#define ZELK_ELF_C_API __attribute__((visibility("default")))
#else
#define ZELK_ELF_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One loaded image. Null means no image. */
typedef struct zelkELFObject* zelkELFHandle;

typedef struct zelkELFSection {
  const uint8_t* data; /* into the handle (see above for how long); null when
                          the section is absent */
  size_t size;
} zelkELFSection;

typedef struct zelkELFBin {
  uint8_t* data; /* malloc'ed; release with zelkELFFreeBin */
  size_t size;
} zelkELFBin;

typedef enum zelkELFDbgIDKind {
  ZELK_ELF_DBG_ID_KIND_0 = 0,
  ZELK_ELF_DBG_ID_KIND_1 = 1
} zelkELFDbgIDKind;

typedef struct zelkELFDbgID {
  zelkELFDbgIDKind kind;
  uint16_t id0;
  uint16_t id1;
} zelkELFDbgID;

typedef enum zelkELFSpillKind {
  ZELK_ELF_SPILL_KIND_0 = 0,
  ZELK_ELF_SPILL_KIND_1 = 1,
  ZELK_ELF_SPILL_KIND_2 = 2,
  ZELK_ELF_SPILL_KIND_3 = 3,
  ZELK_ELF_SPILL_KIND_4 = 4,
  ZELK_ELF_SPILL_KIND_5 = 5
} zelkELFSpillKind;

typedef struct zelkELFSpillLoc {
  uint32_t addr;
  uint8_t index;
  uint8_t reserved[3]; /* always 0 */
  zelkELFSpillKind kind;
} zelkELFSpillLoc;

typedef struct zelkELFSWPLoc {
  uint32_t addr;
} zelkELFSWPLoc;

typedef struct zelkELFBlockRange {
  uint32_t start;
  uint32_t end;
} zelkELFBlockRange;

typedef struct zelkELFCFGEdge {
  zelkELFBlockRange first;
  zelkELFBlockRange second;
} zelkELFCFGEdge;

typedef struct zelkELFSpillInfo {
  zelkELFSpillLoc* locs;
  size_t count;
} zelkELFSpillInfo;

typedef struct zelkELFSWPInfo {
  zelkELFSWPLoc* locs;
  size_t count;
} zelkELFSWPInfo;

typedef struct zelkELFCFGInfo {
  zelkELFCFGEdge* edges;
  size_t count;
} zelkELFCFGInfo;

typedef struct zelkELFSrcList {
  const char** names; /* the array is the caller's; the strings the handle's */
  size_t count;
} zelkELFSrcList;

/* Handles and version. */
ZELK_ELF_C_API zelkELFHandle zelkELFLoad(const uint8_t* data, size_t size);
ZELK_ELF_C_API void zelkELFFree(zelkELFHandle handle);
ZELK_ELF_C_API void zelkELFVersion(uint32_t* major, uint32_t* minor,
                                   uint32_t* patch, const char** text);

/* Raw sections. Names are matched exactly, up to their first NUL. */
ZELK_ELF_C_API zelkELFSection zelkELFGetSection(zelkELFHandle handle,
                                                const char* name);
ZELK_ELF_C_API size_t zelkELFGetSectionSize(zelkELFHandle handle,
                                            const char* name);
ZELK_ELF_C_API void zelkELFSetSection(zelkELFHandle handle, const char* name,
                                      const uint8_t* data, size_t size);

/* Debug information. */
ZELK_ELF_C_API int zelkELFGetDbgID(zelkELFHandle handle, zelkELFDbgID* out);
ZELK_ELF_C_API zelkELFSpillInfo zelkELFGetSpillInfo(zelkELFHandle handle);
ZELK_ELF_C_API void zelkELFFreeSpillInfo(zelkELFSpillInfo info);
ZELK_ELF_C_API zelkELFSWPInfo zelkELFGetSWPInfo(zelkELFHandle handle);
ZELK_ELF_C_API void zelkELFFreeSWPInfo(zelkELFSWPInfo info);
ZELK_ELF_C_API zelkELFCFGInfo zelkELFGetCFGInfo(zelkELFHandle handle);
ZELK_ELF_C_API void zelkELFFreeCFGInfo(zelkELFCFGInfo info);
ZELK_ELF_C_API zelkELFSrcList zelkELFGetSrcList(zelkELFHandle handle,
                                                const char* source_name);
ZELK_ELF_C_API zelkELFSrcList zelkELFGetSrcNameList(zelkELFHandle handle);
ZELK_ELF_C_API void zelkELFFreeSrcList(zelkELFSrcList list);
ZELK_ELF_C_API uint32_t zelkELFGetPMSize(zelkELFHandle handle);
ZELK_ELF_C_API const char* zelkELFGetVerifyInfo(zelkELFHandle handle);

/* Saving. */
ZELK_ELF_C_API zelkELFBin zelkELFSave(zelkELFHandle handle);
ZELK_ELF_C_API void zelkELFFreeBin(zelkELFBin bin);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* ZELK_ELF_ZELK_ELF_H_ */
