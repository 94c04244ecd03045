// Debug-information queries: elements are copied into malloc'ed arrays the
// caller owns; strings stay inside the handle.
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "capi/handle.h"

using zelk_elf::ELF;
using zelk_elf::capi::withELF;

namespace {

constexpr uint8_t kMaxSpillKind = 5;

// An array of `count` elements from malloc, or null.
template <typename T>
T* allocateArray(size_t count) {
  if (count > SIZE_MAX / sizeof(T)) return nullptr;
  return static_cast<T*>(std::malloc(count * sizeof(T)));
}

// Copies `elements` into a malloc'ed array through `convert(element, out)`,
// which may refuse an element; a refusal or a failed allocation gives the
// empty record, so no partial list ever reaches the caller.
template <typename Record, typename Out, typename Elements, typename Convert>
Record copyOut(const Elements& elements, Convert convert) {
  Record result = {nullptr, 0};
  if (elements.empty()) return result;
  Out* array = allocateArray<Out>(elements.size());
  if (array == nullptr) return result;
  for (size_t i = 0; i < elements.size(); ++i) {
    if (!convert(elements[i], &array[i])) {
      std::free(array);
      return result;
    }
  }
  return Record{array, elements.size()};
}

// The elements of a list field copied out; an absent field, like an empty
// one, gives the empty record.
template <typename Record, typename Out, typename T, typename Convert>
Record copyField(zelkELFHandle handle, const absl::optional<T> ELF::*field, Convert convert) {
  const Record empty = {nullptr, 0};
  return withELF(handle, empty, [&](const ELF& elf) {
    const absl::optional<T>& value = elf.*field;
    return value ? copyOut<Record, Out>(zelk_elf::elementsOf(*value), convert) : empty;
  });
}

zelkELFBlockRange toBlockRange(const zelk_elf::BasicBlockRange& range) {
  return zelkELFBlockRange{range.start, range.end};
}

}  // namespace

extern "C" {

int zelkELFGetDbgID(zelkELFHandle handle, zelkELFDbgID* out) {
  if (out == nullptr) return 0;
  return withELF(handle, 0, [&](const ELF& elf) {
    if (!elf.dbgID.has_value()) return 0;
    const zelk_elf::DebugInfoID& id = *elf.dbgID;
    if (id.kind != ZELK_ELF_DBG_ID_KIND_0 && id.kind != ZELK_ELF_DBG_ID_KIND_1) {
      return 0;
    }
    out->kind = static_cast<zelkELFDbgIDKind>(id.kind);
    out->id0 = id.id0;
    out->id1 = id.id1;
    return 1;
  });
}

zelkELFSpillInfo zelkELFGetSpillInfo(zelkELFHandle handle) {
  return copyField<zelkELFSpillInfo, zelkELFSpillLoc>(
      handle, &ELF::spillInfo, [](const zelk_elf::SpillLoc& loc, zelkELFSpillLoc* out) {
        // One undefined kind makes the whole list unusable.
        if (loc.kind > kMaxSpillKind) return false;
        std::memset(out, 0, sizeof(*out));
        out->addr = loc.addr;
        out->index = loc.index;
        out->kind = static_cast<zelkELFSpillKind>(loc.kind);
        return true;
      });
}

void zelkELFFreeSpillInfo(zelkELFSpillInfo info) {
  if (info.count != 0) std::free(info.locs);
}

zelkELFSWPInfo zelkELFGetSWPInfo(zelkELFHandle handle) {
  return copyField<zelkELFSWPInfo, zelkELFSWPLoc>(
      handle, &ELF::swpInfo, [](const zelk_elf::SWPLoc& loc, zelkELFSWPLoc* out) {
        out->addr = loc.addr;
        return true;
      });
}

void zelkELFFreeSWPInfo(zelkELFSWPInfo info) {
  if (info.count != 0) std::free(info.locs);
}

zelkELFCFGInfo zelkELFGetCFGInfo(zelkELFHandle handle) {
  return copyField<zelkELFCFGInfo, zelkELFCFGEdge>(
      handle, &ELF::cfgInfo, [](const auto& edge, zelkELFCFGEdge* out) {
        out->first = toBlockRange(std::get<0>(edge));
        out->second = toBlockRange(std::get<1>(edge));
        return true;
      });
}

void zelkELFFreeCFGInfo(zelkELFCFGInfo info) {
  if (info.count != 0) std::free(info.edges);
}

zelkELFSrcList zelkELFGetSrcList(zelkELFHandle handle,
                                 const char* source_name) {
  const zelkELFSrcList empty = {nullptr, 0};
  if (source_name == nullptr) return empty;
  return withELF(handle, empty, [&](const ELF& elf) {
    if (!elf.srcInfo.has_value()) return empty;
    const auto it = elf.srcInfo->find(std::string(source_name));
    if (it == elf.srcInfo->end()) return empty;
    return copyOut<zelkELFSrcList, const char*>(
        it->second, [](const std::string& s, const char** out) {
          *out = s.c_str();
          return true;
        });
  });
}

zelkELFSrcList zelkELFGetSrcNameList(zelkELFHandle handle) {
  const zelkELFSrcList empty = {nullptr, 0};
  return withELF(handle, empty, [&](const ELF& elf) {
    if (!elf.srcInfo.has_value() || elf.srcInfo->empty()) return empty;
    const char** array = allocateArray<const char*>(elf.srcInfo->size());
    if (array == nullptr) return empty;
    size_t i = 0;
    for (const auto& entry : *elf.srcInfo) array[i++] = entry.first.c_str();
    return zelkELFSrcList{array, i};
  });
}

void zelkELFFreeSrcList(zelkELFSrcList list) {
  if (list.count != 0) std::free(list.names);
}

uint32_t zelkELFGetPMSize(zelkELFHandle handle) {
  return withELF(handle, uint32_t{0},
                 [](const ELF& elf) { return elf.pmSize.value_or(0); });
}

const char* zelkELFGetVerifyInfo(zelkELFHandle handle) {
  return withELF(handle, static_cast<const char*>(nullptr),
                 [](const ELF& elf) -> const char* {
                   return elf.verifyInfo ? elf.verifyInfo->c_str() : nullptr;
                 });
}

}  // extern "C"
