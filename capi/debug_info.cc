// Debug-information queries: elements are copied into malloc'ed arrays the
// caller owns; strings stay inside the handle.
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "capi/handle.h"

using zelk_elf::ELF;
using zelk_elf::capi::toELF;

namespace {

constexpr uint8_t kMaxSpillKind = 5;

// An array of `count` elements from malloc, or null.
template <typename T>
T* allocateArray(size_t count) {
  if (count > SIZE_MAX / sizeof(T)) return nullptr;
  return static_cast<T*>(std::malloc(count * sizeof(T)));
}

zelkELFBlockRange toBlockRange(const zelk_elf::BasicBlockRange& range) {
  zelkELFBlockRange result;
  result.start = range.start;
  result.end = range.end;
  return result;
}

}  // namespace

extern "C" {

int zelkELFGetDbgID(zelkELFHandle handle, zelkELFDbgID* out) {
  try {
    const ELF& elf = *toELF(handle);
    if (!elf.dbgID.has_value()) return 0;
    const zelk_elf::DebugInfoID& id = *elf.dbgID;
    if (id.kind != ZELK_ELF_DBG_ID_KIND_0 && id.kind != ZELK_ELF_DBG_ID_KIND_1) {
      return 0;
    }
    out->kind = static_cast<zelkELFDbgIDKind>(id.kind);
    out->id0 = id.id0;
    out->id1 = id.id1;
    return 1;
  } catch (...) {
    return 0;
  }
}

zelkELFSpillInfo zelkELFGetSpillInfo(zelkELFHandle handle) {
  zelkELFSpillInfo result = {nullptr, 0};
  try {
    const ELF& elf = *toELF(handle);
    if (!elf.spillInfo.has_value() || elf.spillInfo->locs.empty()) {
      return result;
    }
    const auto& locs = elf.spillInfo->locs;
    zelkELFSpillLoc* array = allocateArray<zelkELFSpillLoc>(locs.size());
    if (array == nullptr) return result;
    for (size_t i = 0; i < locs.size(); ++i) {
      // One undefined kind makes the whole list unusable.
      if (locs[i].kind > kMaxSpillKind) {
        std::free(array);
        return result;
      }
      std::memset(&array[i], 0, sizeof(array[i]));
      array[i].addr = locs[i].addr;
      array[i].index = locs[i].index;
      array[i].kind = static_cast<zelkELFSpillKind>(locs[i].kind);
    }
    result.locs = array;
    result.count = locs.size();
  } catch (...) {
  }
  return result;
}

void zelkELFFreeSpillInfo(zelkELFSpillInfo info) {
  if (info.count != 0) std::free(info.locs);
}

zelkELFSWPInfo zelkELFGetSWPInfo(zelkELFHandle handle) {
  zelkELFSWPInfo result = {nullptr, 0};
  try {
    const ELF& elf = *toELF(handle);
    if (!elf.swpInfo.has_value() || elf.swpInfo->locs.empty()) return result;
    const auto& locs = elf.swpInfo->locs;
    zelkELFSWPLoc* array = allocateArray<zelkELFSWPLoc>(locs.size());
    if (array == nullptr) return result;
    for (size_t i = 0; i < locs.size(); ++i) array[i].addr = locs[i].addr;
    result.locs = array;
    result.count = locs.size();
  } catch (...) {
  }
  return result;
}

void zelkELFFreeSWPInfo(zelkELFSWPInfo info) {
  if (info.count != 0) std::free(info.locs);
}

zelkELFCFGInfo zelkELFGetCFGInfo(zelkELFHandle handle) {
  zelkELFCFGInfo result = {nullptr, 0};
  try {
    const ELF& elf = *toELF(handle);
    if (!elf.cfgInfo.has_value() || elf.cfgInfo->edges.empty()) return result;
    const auto& edges = elf.cfgInfo->edges;
    zelkELFCFGEdge* array = allocateArray<zelkELFCFGEdge>(edges.size());
    if (array == nullptr) return result;
    for (size_t i = 0; i < edges.size(); ++i) {
      array[i].first = toBlockRange(std::get<0>(edges[i]));
      array[i].second = toBlockRange(std::get<1>(edges[i]));
    }
    result.edges = array;
    result.count = edges.size();
  } catch (...) {
  }
  return result;
}

void zelkELFFreeCFGInfo(zelkELFCFGInfo info) {
  if (info.count != 0) std::free(info.edges);
}

zelkELFSrcList zelkELFGetSrcList(zelkELFHandle handle,
                                 const char* source_name) {
  zelkELFSrcList result = {nullptr, 0};
  try {
    const ELF& elf = *toELF(handle);
    if (!elf.srcInfo.has_value()) return result;
    const auto it = elf.srcInfo->find(std::string(source_name));
    if (it == elf.srcInfo->end() || it->second.empty()) return result;
    const auto& strings = it->second;
    const char** array = allocateArray<const char*>(strings.size());
    if (array == nullptr) return result;
    for (size_t i = 0; i < strings.size(); ++i) array[i] = strings[i].c_str();
    result.names = array;
    result.count = strings.size();
  } catch (...) {
  }
  return result;
}

zelkELFSrcList zelkELFGetSrcNameList(zelkELFHandle handle) {
  zelkELFSrcList result = {nullptr, 0};
  try {
    const ELF& elf = *toELF(handle);
    if (!elf.srcInfo.has_value() || elf.srcInfo->empty()) return result;
    const char** array = allocateArray<const char*>(elf.srcInfo->size());
    if (array == nullptr) return result;
    size_t i = 0;
    for (const auto& entry : *elf.srcInfo) array[i++] = entry.first.c_str();
    result.names = array;
    result.count = i;
  } catch (...) {
  }
  return result;
}

void zelkELFFreeSrcList(zelkELFSrcList list) {
  if (list.count != 0) std::free(list.names);
}

uint32_t zelkELFGetPMSize(zelkELFHandle handle) {
  if (handle == nullptr) return 0;
  const ELF& elf = *toELF(handle);
  return elf.pmSize.value_or(0);
}

const char* zelkELFGetVerifyInfo(zelkELFHandle handle) {
  if (handle == nullptr) return nullptr;
  const ELF& elf = *toELF(handle);
  return elf.verifyInfo.has_value() ? elf.verifyInfo->c_str() : nullptr;
}

}  // extern "C"
