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

// The first section of each of the nine names, by index, found in one pass.
std::array<absl::optional<size_t>, kDebugFieldCount> findDebugSections(
    const engine::Image& image) {
  std::array<absl::optional<size_t>, kDebugFieldCount> found;
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
absl::Status forEachFieldUntilFailure(Step step) {
  absl::Status status;
  forEachDebugField([&](size_t index, const auto& field) {
    if (status.ok()) status = step(index, field);
  });
  return status;
}

}  // namespace

absl::Status readDebugFields(ELF& elf) {
  const engine::Image& image = elf.impl->image;
  const auto found = findDebugSections(image);
  return forEachFieldUntilFailure([&](size_t index, const auto& field) -> absl::Status {
    using T = typename std::decay_t<decltype(field)>::Type;
    const absl::string_view name = field.section;
    if (!found[index]) return absl::OkStatus();
    const engine::Section& section = image.sections()[*found[index]];
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
  return forEachFieldUntilFailure([&](size_t index, const auto& field) -> absl::Status {
    const auto& value = elf.*field.member;
    if (!value) return absl::OkStatus();
    const std::vector<uint8_t> payload = debuginfo::encodePayload(*value);
    const absl::string_view name = field.section;
    engine::Section& section =
        found[index] ? image.sections()[*found[index]] : addSection(elf, name);
    // Saving on after a failed copy would hand out an image whose debug
    // section no longer decodes.
    if (absl::Status s = writeRawSection(elf, section, payload); !s.ok()) {
      return absl::ResourceExhaustedError(
          absl::StrCat(name, ": no memory for its payload of ", payload.size(), " bytes"));
    }
    return absl::OkStatus();
  });
}

}  // namespace zelk_elf
