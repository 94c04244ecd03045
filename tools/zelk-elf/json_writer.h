// A small streaming JSON writer with stable, indented output.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_JSON_WRITER_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_JSON_WRITER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "absl/strings/string_view.h"

namespace zelk_elf {
namespace cli {

// Appends JSON text to a string: two-space indentation, one member or
// element per line, "{}" and "[]" for empty containers, a final newline when
// the top-level value is complete. Callers pair begin/end calls and give a
// key before each member of an object; the writer does not check this.
class JsonWriter {
 public:
  explicit JsonWriter(std::string* out) : out_(out) {}

  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  void key(absl::string_view name);

  void string(absl::string_view text);
  void number(uint64_t value);
  void boolean(bool value);
  void null();

  // Shorthands for one member.
  void member(absl::string_view name, absl::string_view text) {
    key(name);
    string(text);
  }
  void member(absl::string_view name, const char* text) {
    key(name);
    string(text);
  }
  void member(absl::string_view name, uint64_t value) {
    key(name);
    number(value);
  }

 private:
  struct Level {
    bool is_object;
    size_t count;
  };

  void beforeValue();
  void afterValue();
  void close(char bracket);
  void newline();

  std::string* out_;
  std::vector<Level> levels_;
  bool after_key_ = false;
};

// The JSON string literal for `text`, quotes included. Valid UTF-8 passes
// through; control characters, '"' and '\\' are escaped; a byte that is not
// part of valid UTF-8 becomes \u00XX with the byte's value.
std::string jsonQuote(absl::string_view text);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_JSON_WRITER_H_
