#include "tools/zelk-elf/json_writer.h"

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"

namespace zelk_elf {
namespace cli {
namespace {

// Length of the valid UTF-8 sequence starting at text[i], or 0.
size_t utf8SequenceLength(absl::string_view text, size_t i) {
  const auto byte = [&text](size_t k) { return static_cast<uint8_t>(text[k]); };
  uint8_t lead = byte(i);
  size_t length;
  uint32_t min_code;
  if (lead >= 0xc2 && lead <= 0xdf) {
    length = 2, min_code = 0x80;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    length = 3, min_code = 0x800;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    length = 4, min_code = 0x10000;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  uint32_t code = lead & (0x3f >> (length - 1));
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xc0) != 0x80) return 0;
    code = (code << 6) | (byte(i + k) & 0x3f);
  }
  // Refuse overlong forms, surrogates and values past U+10FFFF.
  if (code < min_code || (code >= 0xd800 && code <= 0xdfff) ||
      code > 0x10ffff) {
    return 0;
  }
  return length;
}

// The two-character escape JSON has for `c`, or null.
const char* shortEscape(uint8_t c) {
  static constexpr struct {
    char c;
    const char* escape;
  } kEscapes[] = {{'"', "\\\""}, {'\\', "\\\\"}, {'\n', "\\n"}, {'\r', "\\r"},
                  {'\t', "\\t"}, {'\b', "\\b"},  {'\f', "\\f"}};
  for (const auto& entry : kEscapes) {
    if (entry.c == static_cast<char>(c)) return entry.escape;
  }
  return nullptr;
}

}  // namespace

std::string jsonQuote(absl::string_view text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size();) {
    uint8_t c = static_cast<uint8_t>(text[i]);
    if (c >= 0x80) {
      size_t length = utf8SequenceLength(text, i);
      if (length == 0) {
        absl::StrAppendFormat(&out, "\\u%04x", c);
        ++i;
      } else {
        out.append(text.data() + i, length);
        i += length;
      }
      continue;
    }
    if (const char* escape = shortEscape(c)) {
      out += escape;
    } else if (c < 0x20 || c == 0x7f) {
      absl::StrAppendFormat(&out, "\\u%04x", c);
    } else {
      out.push_back(static_cast<char>(c));
    }
    ++i;
  }
  out += "\"";
  return out;
}

void JsonWriter::newline() {
  out_->push_back('\n');
  out_->append(2 * levels_.size(), ' ');
}

void JsonWriter::beforeValue() {
  if (after_key_) {
    after_key_ = false;
    return;
  }
  if (levels_.empty()) return;
  if (levels_.back().count > 0) out_->push_back(',');
  newline();
}

void JsonWriter::afterValue() {
  if (levels_.empty()) {
    out_->push_back('\n');
  } else {
    ++levels_.back().count;
  }
}

void JsonWriter::key(absl::string_view name) {
  if (levels_.back().count > 0) out_->push_back(',');
  newline();
  out_->append(jsonQuote(name));
  out_->append(": ");
  after_key_ = true;
}

void JsonWriter::beginObject() {
  beforeValue();
  out_->push_back('{');
  levels_.push_back({true, 0});
}

void JsonWriter::beginArray() {
  beforeValue();
  out_->push_back('[');
  levels_.push_back({false, 0});
}

void JsonWriter::close(char bracket) {
  bool had_members = levels_.back().count > 0;
  levels_.pop_back();
  if (had_members) newline();
  out_->push_back(bracket);
  afterValue();
}

void JsonWriter::endObject() { close('}'); }
void JsonWriter::endArray() { close(']'); }

void JsonWriter::string(absl::string_view text) {
  beforeValue();
  out_->append(jsonQuote(text));
  afterValue();
}

void JsonWriter::number(uint64_t value) {
  beforeValue();
  absl::StrAppend(out_, value);
  afterValue();
}

void JsonWriter::boolean(bool value) {
  beforeValue();
  out_->append(value ? "true" : "false");
  afterValue();
}

void JsonWriter::null() {
  beforeValue();
  out_->append("null");
  afterValue();
}

}  // namespace cli
}  // namespace zelk_elf
