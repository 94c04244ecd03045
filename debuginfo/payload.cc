#include "debuginfo/payload.h"

#include "absl/strings/str_cat.h"
#include "serialize/containers.h"

namespace zelk_elf {
namespace debuginfo {
using tolva_lib::io::MemReader;

std::string refusal(const MemReader& reader) {
  if (reader.size() == 0) return "payload is empty";
  const char* what = "ends inside a value";
  switch (reader.failedUnit()) {
    case MemReader::Unit::kElement: what = "ends inside an element"; break;
    case MemReader::Unit::kEntry: what = "ends inside an entry"; break;
    case MemReader::Unit::kCount: what = "cannot hold what the count claims"; break;
    case MemReader::Unit::kCrowdedKey:
      return absl::StrCat("payload of ", reader.size(), " bytes has more than ",
                          tolva_lib::serialize::kMaxKeysPerBucket,
                          " map keys in one hash bucket (keys built to collide) at offset ",
                          reader.failedAt());
    case MemReader::Unit::kValue: break;
  }
  return absl::StrCat("payload of ", reader.size(), " bytes ", what,
                      " at offset ", reader.failedAt());
}

}  // namespace debuginfo
}  // namespace zelk_elf
