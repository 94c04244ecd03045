#include "tools/zelk-elf/json.h"

#include <algorithm>

namespace zelk_elf {
namespace cli {
std::string jsonText(absl::string_view bytes) {
  std::string text(bytes);
  if (std::all_of(bytes.begin(), bytes.end(),
                  [](char c) { return static_cast<uint8_t>(c) < 0x80; })) {
    return text;
  }
  try {
    Json(text).dump();  // throws on bytes that are not UTF-8
    return text;
  } catch (const Json::type_error&) {
    text.clear();
    for (char c : bytes) {
      const auto byte = static_cast<uint8_t>(c);
      if (byte >= 0x80) text.push_back(static_cast<char>(0xc0 | byte >> 6));
      text.push_back(
          static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3f)));
    }
    return text;
  }
}

Json toJson(const DebugInfoID& id) {
  return {{"kind", id.kind}, {"id0", id.id0}, {"id1", id.id1}};
}

Json toJson(const SpillLoc& loc) {
  return {{"address", loc.addr},
          {"index", loc.index},
          {"kind", loc.kind},
          {"name", jsonText(loc.name)}};
}

Json toJson(const SWPLoc& loc) { return {{"address", loc.addr}}; }

Json toJson(const BasicBlockRange& range) {
  return {{"start", range.start}, {"end", range.end}};
}

Json toJson(const std::tuple<BasicBlockRange, BasicBlockRange>& edge) {
  return {{"first", toJson(std::get<0>(edge))},
          {"second", toJson(std::get<1>(edge))}};
}

Json toJson(const LatencyInfoLoc& loc) {
  return {{"address", loc.addr},
          {"kind", loc.kind},
          {"values", {loc.value0, loc.value1, loc.value2, loc.value3}}};
}

Json toJson(const SourceMap::value_type& entry) {
  Json strings = Json::array();
  for (const std::string& text : entry.second)
    strings.push_back(jsonText(text));
  return {{"source", jsonText(entry.first)}, {"strings", std::move(strings)}};
}

Json toJson(const SymbolMap::value_type& entry) {
  return {{"symbol", jsonText(entry.first)},
          {"kind", entry.second.kind},
          {"address", entry.second.addr}};
}

void JsonStream::startMember(absl::string_view key) {
  out_ << (first_ ? "\n  " : ",\n  ") << Json(jsonText(key)).dump() << ": ";
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
  // Strings went through jsonText; replacing only keeps dump() from throwing.
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
