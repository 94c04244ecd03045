#include "elf/debug_fields.h"

#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "debuginfo/payload.h"
#include "elf/impl.h"
#include "elf/sections.h"

namespace zelk_elf {
namespace {

template <typename T>
struct DebugField {
  size_t index;  // into kDebugSectionNames
  absl::optional<T> ELF::*member;
};

// The fields of ELF, in section order.
constexpr auto kDebugFields = std::make_tuple(
    DebugField<DebugInfoID>{0, &ELF::dbgID},
    DebugField<SpillInfo>{1, &ELF::spillInfo},
    DebugField<SWPInfo>{2, &ELF::swpInfo},
    DebugField<ControlFlowGraph>{3, &ELF::cfgInfo},
    DebugField<SourceMap>{4, &ELF::srcInfo},
    DebugField<SymbolMap>{5, &ELF::symInfo},
    DebugField<uint32_t>{6, &ELF::pmSize},
    DebugField<std::string>{7, &ELF::verifyInfo},
    DebugField<LatencyInfo>{8, &ELF::latencyInfo});

// Runs `step` on each field in order until one fails.
template <typename Step>
absl::Status forEachField(Step step) {
  absl::Status status;
  std::apply(
      [&](const auto&... field) {
        ((status.ok() ? (void)(status = step(field)) : (void)0), ...);
      },
      kDebugFields);
  return status;
}

}  // namespace

absl::Status readDebugFields(ELF& elf) {
  const engine::Image& image = elf.impl->image;
  return forEachField([&](const auto& field) -> absl::Status {
    using T = typename std::remove_reference_t<decltype(elf.*field.member)>::value_type;
    const char* name = kDebugSectionNames[field.index];
    const engine::Section* section = image.findSection(name);
    if (section == nullptr) return absl::OkStatus();
    absl::StatusOr<T> value = debuginfo::decodePayload<T>(section->bytes());
    if (!value.ok()) {
      return absl::InvalidArgumentError(absl::StrCat(name, ": ", value.status().message()));
    }
    if constexpr (std::is_same_v<T, std::string>) {
      elf.setVerifyInfo(std::move(*value));
    } else {
      elf.*field.member = std::move(*value);
    }
    return absl::OkStatus();
  });
}

absl::Status writeDebugFields(ELF& elf) {
  return forEachField([&](const auto& field) -> absl::Status {
    const auto& value = elf.*field.member;
    if (!value) return absl::OkStatus();
    const std::vector<uint8_t> payload = debuginfo::encodePayload(*value);
    const char* name = kDebugSectionNames[field.index];
    const engine::Section& section = writeRawSection(elf, name, payload);
    // The engine empties a section whose copy could not be allocated; saving
    // on would hand out an image whose debug section no longer decodes.
    if (section.bytes().size() != payload.size()) {
      return absl::ResourceExhaustedError(
          absl::StrCat(name, ": no memory for its payload of ", payload.size(), " bytes"));
    }
    return absl::OkStatus();
  });
}

}  // namespace zelk_elf
