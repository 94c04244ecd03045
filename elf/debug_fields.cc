#include "elf/debug_fields.h"

#include <array>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "absl/strings/match.h"
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

// The first section of each of the nine names, by index, found in one pass.
std::array<absl::optional<size_t>, 9> findDebugSections(const engine::Image& image) {
  std::array<absl::optional<size_t>, 9> found;
  const absl::Span<const engine::Section> sections = image.sections();
  for (size_t i = 0; i < sections.size(); ++i) {
    const absl::string_view name = sections[i].name;
    if (!absl::StartsWith(name, ".zelk.dbg.")) continue;
    for (size_t k = 0; k < found.size(); ++k) {
      if (!found[k] && name == kDebugSectionNames[k]) {
        found[k] = i;
        break;
      }
    }
  }
  return found;
}

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
  const auto found = findDebugSections(image);
  return forEachField([&](const auto& field) -> absl::Status {
    using T = typename std::remove_reference_t<decltype(elf.*field.member)>::value_type;
    const absl::string_view name = kDebugSectionNames[field.index];
    if (!found[field.index]) return absl::OkStatus();
    const engine::Section& section = image.sections()[*found[field.index]];
    absl::StatusOr<T> value = debuginfo::decodePayload<T>(section.bytes());
    if (!value.ok()) {
      return absl::InvalidArgumentError(absl::StrCat(name, ": ", value.status().message()));
    }
    elf.*field.member = std::move(*value);
    return absl::OkStatus();
  });
}

absl::Status writeDebugFields(ELF& elf) {
  engine::Image& image = elf.impl->image;
  // Sections are only appended here, so indexes found first stay right.
  const auto found = findDebugSections(image);
  return forEachField([&](const auto& field) -> absl::Status {
    const auto& value = elf.*field.member;
    if (!value) return absl::OkStatus();
    const std::vector<uint8_t> payload = debuginfo::encodePayload(*value);
    const absl::string_view name = kDebugSectionNames[field.index];
    engine::Section& section = found[field.index] ? image.sections()[*found[field.index]]
                                                  : addSection(elf, name);
    writeRawSection(elf, section, payload);
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
