// Reading the document of `debug --json` back for `edit --set-debug`: one
// conversion per record, the inverse of toJson, and every refusal naming the
// JSON path it concerns.
#include <algorithm>
#include <limits>
#include <map>
#include <set>

#include "absl/strings/escaping.h"
#include "absl/strings/str_cat.h"
#include "elf/debug_fields.h"
#include "serialize/containers.h"
#include "tools/zelk-elf/printer.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

// The step to member `key` in a path: ".key", or ["key"] with escapes when
// the key holds anything but printable ASCII (a path reaches the terminal).
std::string pathStep(absl::string_view key) {
  const bool plain = std::all_of(key.begin(), key.end(), [](char c) {
    return c > 0x20 && c < 0x7f && c != '"' && c != '[' && c != '.';
  });
  return plain && !key.empty() ? absl::StrCat(".", key) : absl::StrCat("[", quoteText(key), "]");
}

// A value of the document and the way to it from the root.
class Node {
 public:
  Node(const Json& value, const Node* parent, std::string step)
      : value_(value), parent_(parent), step_(std::move(step)) {}

  bool isNull() const { return value_.is_null(); }
  bool isArray() const { return value_.is_array(); }
  std::string path() const {
    return parent_ == nullptr ? step_ : parent_->path() + step_;
  }
  [[noreturn]] void fail(const std::string& what) const {
    throw documentError(absl::StrCat(path(), ": ", what));
  }
  // Refuses anything but `kind`, naming scalars as written.
  void expect(bool is_kind, const char* kind) const {
    if (is_kind) return;
    fail(absl::StrCat(
        "expected ", kind, ", found ",
        value_.is_structured()
            ? value_.type_name()
            : value_.dump(-1, ' ', false, Json::error_handler_t::replace)));
  }

  uint64_t number(uint64_t max) const {
    expect(value_.is_number_unsigned(), "an unsigned integer");
    const auto number = value_.get<uint64_t>();
    if (number > max) {
      fail(absl::StrCat(number, " is out of range (at most ", max, ")"));
    }
    return number;
  }
  // The member `key` as an unsigned integer of type T.
  template <typename T>
  T get(const char* key) const {
    return static_cast<T>((*this)[key].number(std::numeric_limits<T>::max()));
  }
  // A byte string: a JSON string, or {"hex": "..."} for bytes that are not
  // UTF-8 (as byteString writes them).
  std::string text() const {
    if (value_.is_object() && value_.size() == 1 && value_.contains("hex")) {
      const std::string digits = (*this)["hex"].text();
      if (digits.size() % 2 != 0 ||
          digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        (*this)["hex"].fail("expected an even number of hex digits");
      }
      return absl::HexStringToBytes(digits);
    }
    expect(value_.is_string(), "a string");
    return value_.get<std::string>();
  }

  // An object whose members are exactly `keys`.
  void expectMembers(const std::vector<std::string>& keys) const {
    expect(value_.is_object(), "an object");
    for (const auto& member : value_.items()) {
      if (std::find(keys.begin(), keys.end(), member.key()) == keys.end()) {
        (*this)[member.key().c_str()].fail("unknown member");
      }
    }
    for (const std::string& key : keys) {
      if (!value_.contains(key)) fail(absl::StrCat("missing member \"", key, "\""));
    }
  }
  Node operator[](const char* key) const { return Node(value_.at(key), this, pathStep(key)); }
  size_t size() const { return value_.size(); }

  // The records `read` makes of the elements of an array.
  template <typename Read>
  auto list(Read read) const {
    expect(value_.is_array(), "an array");
    std::vector<decltype(read(*this))> records;
    records.reserve(value_.size());
    for (size_t i = 0; i < value_.size(); ++i) {
      records.push_back(read(Node(value_[i], this, absl::StrCat("[", i, "]"))));
    }
    return records;
  }

 private:
  const Json& value_;
  const Node* parent_;
  std::string step_;
};

// The inverse of toJson, by type: integers within their width, byte
// strings, records member by member as layoutOf lays them out, CFG edges.
template <typename T>
T readValue(const Node& n);

template <typename T>
T readRecord(const Node& n, std::vector<std::string> members = {}) {
  const std::vector<LayoutMember>& layout = layoutOf<T>();
  for (const LayoutMember& member : layout) members.push_back(member.name);
  n.expectMembers(members);
  T record;
  size_t index = 0;
  std::vector<uint64_t> array;  // the numbers of the array member being read
  visitFields(
      [&](const char*, auto& field) {
        using Field = std::decay_t<decltype(field)>;
        const LayoutMember& member = *std::find_if(
            layout.begin(), layout.end(),
            [index](const LayoutMember& m) { return index < m.first + m.count; });
        const Node value = n[member.name.c_str()];
        if constexpr (std::is_integral<Field>::value) {
          if (member.array) {
            if (index == member.first) {
              array = value.list([](const Node& element) {
                return element.number(std::numeric_limits<Field>::max());
              });
              if (array.size() != member.count) {
                value.fail(absl::StrCat("expected ", member.count, " ", member.name,
                                        ", found ", array.size()));
              }
            }
            field = static_cast<Field>(array[index - member.first]);
            ++index;
            return;
          }
        }
        field = readValue<Field>(value);
        ++index;
      },
      record);
  return record;
}

template <typename T>
T readValue(const Node& n) {
  if constexpr (std::is_integral<T>::value) {
    return static_cast<T>(n.number(std::numeric_limits<T>::max()));
  } else if constexpr (std::is_same<T, std::string>::value) {
    return n.text();
  } else if constexpr (IsListRecord<T>::value) {
    T record;
    using Element = typename std::decay_t<decltype(elementsOf(record))>::value_type;
    record.*(std::get<0>(Fields<T>::kList).member) = n.list(readValue<Element>);
    return record;
  } else if constexpr (IsRecord<T>::value) {
    return readRecord<T>(n);
  } else {  // a CFG edge
    n.expectMembers({"first", "second"});
    return T{readValue<BasicBlockRange>(n["first"]), readValue<BasicBlockRange>(n["second"])};
  }
}

// A map given as an array of entries, each its key under `key` and its
// value's members (or a value list as "strings"); a key given twice is
// refused, and so are keys built to crowd one bucket of the map (as the
// library refuses them in a payload).
template <typename Map>
Map readMap(const Node& n, const std::string& key) {
  using Value = typename Map::mapped_type;
  Map map;
  n.expect(n.isArray(), "an array");
  tolva_lib::serialize::BucketGuard<Map> guard(map, n.size());
  n.list([&](const Node& entry) {
    Value value;
    if constexpr (IsRecord<Value>::value) {
      value = readRecord<Value>(entry, {key});
    } else {
      entry.expectMembers({key, "strings"});
      value = entry["strings"].list(readValue<std::string>);
    }
    const std::string name = entry[key.c_str()].text();
    switch (guard.tryEmplace(name, std::move(value))) {
      case tolva_lib::serialize::BucketGuard<Map>::Outcome::kDuplicate:
        entry[key.c_str()].fail("duplicate key " + quoteText(name));
      case tolva_lib::serialize::BucketGuard<Map>::Outcome::kCrowded:
        entry[key.c_str()].fail(absl::StrCat("more than ",
                                             tolva_lib::serialize::kMaxKeysPerBucket,
                                             " keys in one hash bucket (keys built to collide)"));
      case tolva_lib::serialize::BucketGuard<Map>::Outcome::kInserted:
        break;
    }
    return true;
  });
  return map;
}

// How one member of the document becomes the operation setting its field.
using FieldReader = std::function<Operation(const Node&)>;

template <typename Field>
FieldReader fieldReader(const Field& field) {
  using T = typename Field::Type;
  const auto member = field.member;
  const std::string section = field.section, key = keyNameOf(field.json_name);
  return [=](const Node& node) -> Operation {
    if (node.isNull()) {
      return [=, path = node.path()](ELF& elf) {
        // Saving keeps the section of an absent field as it is, so the
        // value would come back on the next load.
        if (elf.hasSection(section)) {
          throw documentError(absl::StrCat(path, ": null cannot remove the ", section,
                                           " section the image holds"));
        }
        (elf.*member).reset();
      };
    }
    std::shared_ptr<const T> value;
    if constexpr (IsMap<T>::value) {
      value = std::make_shared<const T>(readMap<T>(node, key));
    } else {
      value = std::make_shared<const T>(readValue<T>(node));
    }
    return [member, value](ELF& elf) { elf.*member = *value; };
  };
}

const std::map<std::string, FieldReader>& fieldReaders() {
  static const std::map<std::string, FieldReader> kReaders = [] {
    std::map<std::string, FieldReader> readers = {
        {"schema", [](const Node& n) -> Operation {
           if (n.number(~uint64_t{0}) != 1) n.fail("unsupported schema (1 expected)");
           return [](ELF&) {};
         }}};
    forEachDebugField([&readers](size_t, const auto& field) {
      readers.emplace(field.json_name, fieldReader(field));
    });
    return readers;
  }();
  return kReaders;
}

// Parses `text`, naming the JSON path reached when the parser stops.
Json parse(const std::string& root, absl::string_view text) {
  struct Level {
    bool array;
    size_t index;
    std::string key;
    std::set<std::string> keys;  // of an object, so far
  };
  std::vector<Level> levels;
  // The path to the value being parsed; `depth` levels of it.
  const auto path = [&](size_t depth) {
    std::string out = root;
    for (size_t i = 0; i < depth; ++i) {
      const Level& level = levels[i];
      absl::StrAppend(&out, level.array ? absl::StrCat("[", level.index, "]")
                            : level.key.empty() ? ""
                                                : pathStep(level.key));
    }
    return out;
  };
  const auto track = [&](int, Json::parse_event_t event, Json& parsed) {
    using Event = Json::parse_event_t;
    if (event == Event::object_start || event == Event::array_start) {
      levels.push_back({event == Event::array_start, 0, "", {}});
    } else if (event == Event::key) {
      Level& object = levels.back();
      object.key = parsed.get<std::string>();
      // Last-wins would silently drop a value the user wrote.
      if (!object.keys.insert(object.key).second) {
        throw documentError(absl::StrCat(path(levels.size() - 1), ": duplicate member ",
                                         quoteText(object.key)));
      }
    } else {
      if (event != Event::value) levels.pop_back();
      if (!levels.empty() && levels.back().array) ++levels.back().index;
    }
    return true;
  };
  try {
    return Json::parse(text.begin(), text.end(), track);
  } catch (const Json::exception& error) {
    // Syntax errors, and numbers no double holds ("1e400", 400 digits).
    // Keep "parse error at line L, column C: ..." of the library's text.
    std::string what = error.what();
    what.erase(0, what.find("] ") + 2);
    what.erase(std::min(what.size(), what.find("; last read")));
    throw documentError(absl::StrCat(path(levels.size()), ": ", what));
  }
}

}  // namespace

std::vector<Operation> readDebugDocument(const std::string& name,
                                         absl::string_view text) {
  const std::string root_path = absl::StrCat("'", name, "': $");
  const Json document = parse(root_path, text);
  const Node root(document, nullptr, root_path);
  root.expect(document.is_object(), "an object");
  std::vector<Operation> operations;
  for (const auto& member : document.items()) {
    const Node node = root[member.key().c_str()];
    auto reader = fieldReaders().find(member.key());
    if (reader == fieldReaders().end()) node.fail("unknown member");
    operations.push_back(reader->second(node));
  }
  return operations;
}

}  // namespace cli
}  // namespace zelk_elf
