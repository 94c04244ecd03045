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
#include "tools/zelk-elf/json.h"
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
  void expectMembers(std::initializer_list<const char*> keys) const {
    expect(value_.is_object(), "an object");
    for (const auto& member : value_.items()) {
      if (std::find(keys.begin(), keys.end(), member.key()) == keys.end()) {
        (*this)[member.key().c_str()].fail("unknown member");
      }
    }
    for (const char* key : keys) {
      if (!value_.contains(key))
        fail(absl::StrCat("missing member \"", key, "\""));
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

DebugInfoID readDebugId(const Node& n) {
  n.expectMembers({"kind", "id0", "id1"});
  return {n.get<uint8_t>("kind"), n.get<uint16_t>("id0"),
          n.get<uint16_t>("id1")};
}

SpillLoc readSpill(const Node& n) {
  n.expectMembers({"address", "index", "kind", "name"});
  return {n.get<uint32_t>("address"), n.get<uint8_t>("index"),
          n.get<uint8_t>("kind"), n["name"].text()};
}

SWPLoc readSwp(const Node& n) {
  n.expectMembers({"address"});
  return {n.get<uint32_t>("address")};
}

BasicBlockRange readRange(const Node& n) {
  n.expectMembers({"start", "end"});
  return {n.get<uint32_t>("start"), n.get<uint32_t>("end")};
}

std::tuple<BasicBlockRange, BasicBlockRange> readEdge(const Node& n) {
  n.expectMembers({"first", "second"});
  return {readRange(n["first"]), readRange(n["second"])};
}

LatencyInfoLoc readLatency(const Node& n) {
  n.expectMembers({"address", "kind", "values"});
  const auto v = n["values"].list([](const Node& value) {
    return static_cast<uint8_t>(value.number(0xff));
  });
  if (v.size() != 4) {
    n["values"].fail(absl::StrCat("expected 4 values, found ", v.size()));
  }
  return {n.get<uint32_t>("address"),
          n.get<uint8_t>("kind"),
          v[0],
          v[1],
          v[2],
          v[3]};
}

std::vector<std::string> readSource(const Node& n) {
  n.expectMembers({"source", "strings"});
  return n["strings"].list([](const Node& s) { return s.text(); });
}

SymbolAddr readSymbol(const Node& n) {
  n.expectMembers({"symbol", "kind", "address"});
  return {n.get<uint8_t>("kind"), n.get<uint32_t>("address")};
}

// A map given as an array of entries; a key given twice is refused, and so
// are keys built to crowd one bucket of the map (as the library refuses
// them in a payload).
template <typename Map, typename Read>
auto readMap(const char* key, Read read) {
  return [=](const Node& n) {
    Map map;
    n.expect(n.isArray(), "an array");
    tolva_lib::serialize::BucketGuard<Map> guard(map, n.size());
    n.list([&](const Node& entry) {
      auto value = read(entry);
      const std::string name = entry[key].text();
      switch (guard.tryEmplace(name, std::move(value))) {
        case tolva_lib::serialize::BucketGuard<Map>::Outcome::kDuplicate:
          entry[key].fail("duplicate key " + quoteText(name));
        case tolva_lib::serialize::BucketGuard<Map>::Outcome::kCrowded:
          entry[key].fail(absl::StrCat("more than ", tolva_lib::serialize::kMaxKeysPerBucket,
                                       " keys in one hash bucket (keys built to collide)"));
        case tolva_lib::serialize::BucketGuard<Map>::Outcome::kInserted:
          break;
      }
      return true;
    });
    return map;
  };
}

// A list field, whose record holds just the list.
template <typename Field, typename Read>
auto readList(Read read) {
  return [read](const Node& n) { return Field{n.list(read)}; };
}

// How one member of the document becomes the operation setting its field.
using FieldReader = std::function<Operation(const Node&)>;

// `index` is the field's place in kDebugSectionNames.
template <typename T, typename Read>
FieldReader field(absl::optional<T> ELF::*member, size_t index, Read read) {
  const std::string section(kDebugSectionNames[index]);
  return [=](const Node& node) -> Operation {
    if (node.isNull()) {
      return [=, path = node.path()](ELF& elf) {
        // Saving keeps the section of an absent field as it is, so the
        // value would come back on the next load.
        if (elf.hasSection(section)) {
          throw documentError(absl::StrCat(path, ": null cannot remove the ",
                                           section,
                                           " section the image holds"));
        }
        (elf.*member).reset();
      };
    }
    auto value = std::make_shared<const T>(read(node));
    return [member, value](ELF& elf) { elf.*member = *value; };
  };
}

const std::map<std::string, FieldReader>& fieldReaders() {
  static const auto* const kReaders = new std::map<std::string, FieldReader>{
      {"schema",
       [](const Node& n) -> Operation {
         if (n.number(~uint64_t{0}) != 1)
           n.fail("unsupported schema (1 expected)");
         return [](ELF&) {};
       }},
      {"debug_id", field(&ELF::dbgID, 0, readDebugId)},
      {"spill_list", field(&ELF::spillInfo, 1, readList<SpillInfo>(readSpill))},
      {"swp_list", field(&ELF::swpInfo, 2, readList<SWPInfo>(readSwp))},
      {"cfg_edges", field(&ELF::cfgInfo, 3, readList<ControlFlowGraph>(readEdge))},
      {"source_map", field(&ELF::srcInfo, 4, readMap<SourceMap>("source", readSource))},
      {"symbol_map", field(&ELF::symInfo, 5, readMap<SymbolMap>("symbol", readSymbol))},
      {"pm_size", field(&ELF::pmSize, 6,
                        [](const Node& n) {
                          return static_cast<uint32_t>(n.number(0xffffffffu));
                        })},
      {"verify_info", field(&ELF::verifyInfo, 7, [](const Node& n) { return n.text(); })},
      {"latency_list", field(&ELF::latencyInfo, 8, readList<LatencyInfo>(readLatency))}};
  return *kReaders;
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
