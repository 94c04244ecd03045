#include "tools/zelk-elf/json.h"

#include <algorithm>

#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
Json byteString(absl::string_view bytes) {
  if (isUtf8(bytes)) return std::string(bytes);
  return Json{{"hex", toHex(absl::MakeConstSpan(
                          reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()))}};
}

void JsonStream::startMember(absl::string_view key) {
  out_ << (first_ ? "\n  " : ",\n  ") << Json(std::string(key)).dump() << ": ";
  first_ = false;
}

void JsonStream::member(absl::string_view key, const Json& value) {
  startMember(key);
  put(value, 1);
}

void JsonStream::beginArray(absl::string_view key) {
  startMember(key);
  elements_ = 0;
}

void JsonStream::element(const Json& value) {
  out_ << (elements_++ == 0 ? "[\n    " : ",\n    ");
  put(value, 2);
}

void JsonStream::put(const Json& value, int depth) {
  // Byte strings went through byteString; replacing only keeps dump() from
  // throwing.
  const std::string text =
      value.dump(2, ' ', false, Json::error_handler_t::replace);
  const std::string indent = "\n" + std::string(2 * depth, ' ');
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos;
       start = end + 1) {
    out_.write(text.data() + start, static_cast<std::streamsize>(end - start));
    out_ << indent;
  }
  out_.write(text.data() + start,
             static_cast<std::streamsize>(text.size() - start));
}

}  // namespace cli
}  // namespace zelk_elf
