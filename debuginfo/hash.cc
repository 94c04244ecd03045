#include "absl/hash/hash.h"
#include "zelk_elf/debug_info.h"

namespace zelk_elf {
namespace {

// absl::Hash of the fields in declaration order: the same value as
// absl::HashOf(field0, field1, ...).
template <typename Record>
size_t hashOfFields(const Record& record) {
  return std::apply(
      [&record](const auto&... fields) { return absl::HashOf(record.*(fields.member)...); },
      Fields<Record>::kList);
}

}  // namespace

size_t DebugInfoID::hash() const { return hashOfFields(*this); }

size_t BasicBlockRange::hash() const { return hashOfFields(*this); }

}  // namespace zelk_elf
