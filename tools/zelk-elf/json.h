// JSON through nlohmann::json: byte strings as the documents show them, and
// a writer that streams one document.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_JSON_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_JSON_H_

#include <cstddef>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "absl/strings/string_view.h"
#include "nlohmann/json.hpp"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace cli {

// Members keep the order they are given in.
using Json = nlohmann::ordered_json;

// A byte string (a name, a line) as JSON: valid UTF-8 as a JSON string, any
// other bytes as {"hex": "ff00"}, so every byte string survives the round
// trip through a document.
Json byteString(absl::string_view bytes);

// What a field holds, or null when it is absent.
template <typename T>
const T* pointer(const absl::optional<T>& field) {
  return field ? &*field : nullptr;
}

// Values as `debug --json` shows them: integers as numbers, byte strings
// as byteString; records and CFG edges in printer.h.
template <typename T, std::enable_if_t<std::is_integral<T>::value, int> = 0>
Json toJson(T value) {
  return value;
}
inline Json toJson(absl::string_view text) { return byteString(text); }

// The name of a map's key in its entries: "source" in "source_map".
inline std::string keyNameOf(absl::string_view map_name) {
  return std::string(map_name.substr(0, map_name.rfind('_')));
}

// Writes one JSON object exactly as Json::dump(2) would, but member by member
// and array element by element, so the document never sits in memory whole.
class JsonStream {
 public:
  explicit JsonStream(std::ostream& out) : out_(out) { out_ << '{'; }
  JsonStream(const JsonStream&) = delete;
  JsonStream& operator=(const JsonStream&) = delete;

  void member(absl::string_view key, const Json& value);
  // An array member, written element by element.
  void beginArray(absl::string_view key);
  void element(const Json& value);
  void endArray() { out_ << (elements_ == 0 ? "[]" : "\n  ]"); }
  // Closes the object; call once, last.
  void end() { out_ << "\n}\n"; }

 private:
  void startMember(absl::string_view key);
  // `value` indented as if nested `depth` levels deep.
  void put(const Json& value, int depth);

  std::ostream& out_;
  bool first_ = true;
  size_t elements_ = 0;
};

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_JSON_H_
