// zelk-elf diff: a structural comparison of two images. What saving derives
// (file offsets, segment file sizes and alignments, the section-name string
// table) is left out, so an image equals its own re-save; .comment and the
// .zelk.dbg. sections are compared decoded, without their map order.
#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "CLI/CLI.hpp"
#include "absl/container/flat_hash_map.h"
#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "elf/debug_fields.h"
#include "tools/zelk-elf/image_view.h"
#include "tools/zelk-elf/printer.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

// Writes each difference as soon as it is found.
class Differ {
 public:
  explicit Differ(bool json) {
    if (!json) return;
    json_ = std::make_unique<JsonStream>(std::cout);
    json_->member("schema", 1);
    json_->beginArray("differences");
  }

  // `before` in A, `after` in B, null where one has none: objects member by
  // member, arrays element by element.
  void values(const std::string& path, const Json& before, const Json& after) {
    if (before == after) return;
    if (before.is_object() && after.is_object()) {
      for (const auto* side : {&before, &after}) {
        for (const auto& member : side->items()) {
          if (side == &after && before.contains(member.key())) continue;
          values(path.empty() ? member.key() : path + "." + member.key(),
                 before.value(member.key(), Json()),
                 after.value(member.key(), Json()));
        }
      }
    } else if (before.is_array() && after.is_array()) {
      for (size_t i = 0; i < std::max(before.size(), after.size()); ++i) {
        values(absl::StrCat(path, "[", i, "]"),
               i < before.size() ? before[i] : Json(),
               i < after.size() ? after[i] : Json());
      }
    } else {
      report(path, before, after, Json(), Json());
    }
  }

  // Bytes differing at `count` offsets, the first at `offset`.
  void bytes(const std::string& path, absl::Span<const uint8_t> before,
             absl::Span<const uint8_t> after) {
    size_t count = 0, first = 0;
    for (size_t i = 0; i < std::max(before.size(), after.size()); ++i) {
      if (i >= before.size() || i >= after.size() || before[i] != after[i]) {
        if (count++ == 0) first = i;
      }
    }
    if (count > 0) report(path, before.size(), after.size(), first, count);
  }

  // Ends the output; the exit code is 0 when equal, 1 when not.
  int finish() {
    if (json_) {
      json_->endArray();
      json_->member("equal", count_ == 0);
      json_->end();
    } else if (count_ == 0) {
      std::cout << "equal\n";
    }
    return count_ == 0 ? kExitOk : kExitBadImage;
  }

 private:
  void report(const std::string& path, const Json& before, const Json& after,
              const Json& offset, const Json& count) {
    ++count_;
    if (json_) {
      json_->element({{"path", path},
                      {"before", before},
                      {"after", after},
                      {"offset", offset},
                      {"count", count}});
    } else if (!offset.is_null()) {
      std::cout << absl::StrFormat(
          "%s: %u bytes differ from offset 0x%x (%u -> %u bytes)\n", path,
          count.get<uint64_t>(), offset.get<uint64_t>(), before.get<uint64_t>(),
          after.get<uint64_t>());
    } else {
      std::cout << path << ": " << show(path, before) << " -> "
                << show(path, after) << "\n";
    }
  }

  // Addresses and flags in hex, strings quoted, records as compact JSON.
  static std::string show(const std::string& path, const Json& value) {
    static const std::set<std::string> kHex = {"address", "start",           "end",
                                               "entry",   "machine",         "flags",
                                               "virtual_address", "physical_address"};
    const std::string member = path.substr(path.rfind('.') + 1);
    if (value.is_null()) return "absent";
    if (value.is_string()) return quoteText(value.get<std::string>());
    if (value.is_number_unsigned() && kHex.count(member) > 0) {
      return absl::StrFormat("0x%x", value.get<uint64_t>());
    }
    // JSON escapes only C0 controls; C1 controls and the rest of UTF-8
    // would reach the terminal as they are.
    return escapeText(value.dump(-1, ' ', false, Json::error_handler_t::replace), "");
  }

  std::unique_ptr<JsonStream> json_;
  size_t count_ = 0;
};

// Sections whose bytes are not compared: derived, or compared decoded.
bool skipsBytes(const ImageView& image, size_t index) {
  absl::string_view name = image.sections[index].name;
  return index == image.section_names || name == ".comment" ||
         absl::StartsWith(name, ".zelk.dbg.");
}

Json headerJson(const ELF& elf, const ImageView& image) {
  return {{"class", image.className()}, {"byte_order", image.byteOrderName()},
          {"type", elf.getType()},      {"machine", elf.getMachine()},
          {"entry", elf.getEntry()},    {"flags", image.flags}};
}

// The recorded size only where the bytes line does not show it.
Json sectionJson(const ImageView& image, size_t index) {
  const SectionView& s = image.sections[index];
  Json json = {{"index", index},           {"type", s.type},
               {"flags", s.flags},         {"address", s.address},
               {"alignment", s.alignment}, {"entry_size", s.entry_size},
               {"link", s.link},           {"info", s.info}};
  if (s.size != s.bytes.size() && !skipsBytes(image, index)) {
    json["recorded_size"] = s.size;
  }
  return json;
}

// Section names as numbers that are equal exactly when the names are, in
// both images. Sections that share a name point into one entry of the name
// table, so each entry is hashed once and a name repeated by thousands of
// sections costs no more than it once does.
class NameIds {
 public:
  size_t of(absl::string_view name) {
    auto [entry, fresh] = by_entry_.try_emplace(std::make_pair(name.data(), name.size()), 0);
    if (fresh) entry->second = by_text_.try_emplace(name, by_text_.size()).first->second;
    return entry->second;
  }

 private:
  absl::flat_hash_map<std::pair<const char*, size_t>, size_t> by_entry_;
  absl::flat_hash_map<absl::string_view, size_t> by_text_;
};

// Each section's name number and its place among the sections of that
// name: sections match by name, the k-th of a name in A with the k-th in B.
std::vector<std::pair<size_t, size_t>> sectionKeys(const ImageView& image, NameIds& ids) {
  absl::flat_hash_map<size_t, size_t> seen;
  std::vector<std::pair<size_t, size_t>> keys;
  keys.reserve(image.sections.size());
  for (const SectionView& s : image.sections) {
    const size_t id = ids.of(s.name);
    keys.emplace_back(id, seen[id]++);
  }
  return keys;
}

// The path of a section, the k-th of its name as "name"#k; made only for a
// difference, as a name may be long and shared by many sections.
std::string sectionPath(const ImageView& image, size_t index, size_t k) {
  return absl::StrCat("sections[", quoteText(image.sections[index].name),
                      k > 0 ? absl::StrCat("#", k + 1) : "", "]");
}

void compareSections(Differ& differ, const ImageView& a, const ImageView& b, NameIds& ids) {
  const auto keys_a = sectionKeys(a, ids);
  const auto keys_b = sectionKeys(b, ids);
  absl::flat_hash_map<std::pair<size_t, size_t>, size_t> in_b;
  for (size_t j = 0; j < keys_b.size(); ++j) in_b.emplace(keys_b[j], j);
  std::vector<bool> matched(keys_b.size(), false);
  for (size_t i = 0; i < keys_a.size(); ++i) {
    const auto found = in_b.find(keys_a[i]);
    if (found == in_b.end()) {
      differ.values(sectionPath(a, i, keys_a[i].second), sectionJson(a, i), Json());
      continue;
    }
    const size_t j = found->second;
    matched[j] = true;
    const Json before = sectionJson(a, i), after = sectionJson(b, j);
    const absl::Span<const uint8_t> bytes_a = a.sections[i].bytes, bytes_b = b.sections[j].bytes;
    const bool compare_bytes = !skipsBytes(a, i) && !skipsBytes(b, j);
    if (before == after && (!compare_bytes || bytes_a == bytes_b)) continue;
    const std::string path = sectionPath(a, i, keys_a[i].second);
    differ.values(path, before, after);
    if (compare_bytes) differ.bytes(path + ".bytes", bytes_a, bytes_b);
  }
  for (size_t j = 0; j < keys_b.size(); ++j) {
    if (!matched[j]) differ.values(sectionPath(b, j, keys_b[j].second), Json(), sectionJson(b, j));
  }
}

// Whether segment `i` of A and of B are alike, comparing member sections by
// name number, so no name is copied while nothing differs.
bool sameSegment(const ImageView& a, const ImageView& b, size_t i, NameIds& ids) {
  const SegmentView& x = a.segments[i];
  const SegmentView& y = b.segments[i];
  if (std::make_tuple(x.type, x.flags, x.virtual_address, x.physical_address, x.memory_size) !=
      std::make_tuple(y.type, y.flags, y.virtual_address, y.physical_address, y.memory_size)) {
    return false;
  }
  auto k = y.sections.begin();
  for (uint16_t index : x.sections) {
    if (k == y.sections.end() || ids.of(a.sectionName(index)) != ids.of(b.sectionName(*k))) {
      return false;
    }
    ++k;
  }
  return k == y.sections.end();
}

Json segmentJson(const ImageView& image, size_t index) {
  const SegmentView& g = image.segments[index];
  Json names = Json::array();
  for (uint16_t k : g.sections) names.push_back(byteString(image.sectionName(k)));
  return {{"type", g.type},
          {"flags", g.flags},
          {"virtual_address", g.virtual_address},
          {"physical_address", g.physical_address},
          {"memory_size", g.memory_size},
          {"sections", std::move(names)}};
}

// visit(step, x, y) for entries of lists by position, of maps by key.
template <typename T, typename Visit>
void forPairs(const std::vector<T>& a, const std::vector<T>& b, Visit visit) {
  for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
    visit(absl::StrCat("[", i, "]"), i < a.size() ? &a[i] : nullptr,
          i < b.size() ? &b[i] : nullptr);
  }
}

template <typename V, typename Visit>
void forPairs(const std::unordered_map<std::string, V>& a,
              const std::unordered_map<std::string, V>& b, Visit visit) {
  std::set<std::string> keys;
  for (const auto* map : {&a, &b}) {
    for (const auto& entry : *map) keys.insert(entry.first);
  }
  for (const std::string& key : keys) {
    auto x = a.find(key);
    auto y = b.find(key);
    visit("[" + quoteText(key) + "]", x == a.end() ? nullptr : &*x,
          y == b.end() ? nullptr : &*y);
  }
}

// A list or map value: its presence, then entry by entry, each shown by
// `to_json` where they differ.
template <typename T, typename ToJson>
void compareEntries(Differ& differ, const std::string& key, const T* a, const T* b,
                    ToJson to_json) {
  if (a == nullptr && b == nullptr) return;
  differ.values(key, a ? Json::array() : Json(), b ? Json::array() : Json());
  const T empty;
  forPairs(a ? *a : empty, b ? *b : empty,
           [&](const std::string& step, const auto* x, const auto* y) {
             if (x == nullptr || y == nullptr || !(*x == *y)) {
               differ.values(key + step, x ? to_json(*x) : Json(), y ? to_json(*y) : Json());
             }
           });
}

// The comment lines and the nine debug values, in the table's order.
void compareDebugFields(Differ& differ, const ELF& a, const ELF& b) {
  compareEntries(differ, "comment_lines", pointer(a.commentInfo), pointer(b.commentInfo),
                 [](absl::string_view line) { return toJson(line); });
  forEachDebugField([&](size_t, const auto& field) {
    using T = typename std::decay_t<decltype(field)>::Type;
    const absl::optional<T>& x = a.*field.member;
    const absl::optional<T>& y = b.*field.member;
    if constexpr (IsListRecord<T>::value) {
      compareEntries(differ, field.json_name, x ? &elementsOf(*x) : nullptr,
                     y ? &elementsOf(*y) : nullptr,
                     [](const auto& element) { return toJson(element); });
    } else if constexpr (IsMap<T>::value) {
      const std::string key = keyNameOf(field.json_name);
      compareEntries(differ, field.json_name, pointer(x), pointer(y),
                     [&key](const auto& entry) { return jsonOf(entryCells(key.c_str(), entry)); });
    } else {
      differ.values(field.json_name, x ? toJson(*x) : Json(), y ? toJson(*y) : Json());
    }
  });
}

int runDiff(const std::string& path_a, const std::string& path_b, bool json) {
  const ELF a = loadImage(path_a);
  const ELF b = loadImage(path_b);
  const ImageView view_a = viewOf(a);
  const ImageView view_b = viewOf(b);
  Differ differ(json);
  differ.values("", headerJson(a, view_a), headerJson(b, view_b));
  NameIds ids;
  compareSections(differ, view_a, view_b, ids);
  for (size_t i = 0;
       i < std::max(view_a.segments.size(), view_b.segments.size()); ++i) {
    if (i < view_a.segments.size() && i < view_b.segments.size() &&
        sameSegment(view_a, view_b, i, ids)) {
      continue;
    }
    differ.values(absl::StrCat("segments[", i, "]"),
                  i < view_a.segments.size() ? segmentJson(view_a, i) : Json(),
                  i < view_b.segments.size() ? segmentJson(view_b, i) : Json());
  }
  compareDebugFields(differ, a, b);
  return differ.finish();
}

std::function<int()> declareDiff(CLI::App& app) {
  struct Args {
    std::string a, b;
    bool json = false;
  };
  auto args = std::make_shared<Args>();
  app.add_option("A", args->a)->required();
  app.add_option("B", args->b)->required();
  app.add_flag("--json", args->json);
  return [args] { return runDiff(args->a, args->b, args->json); };
}

}  // namespace

const Command kDiffCommand = {
    "diff", "compare two images structurally",
    "usage: zelk-elf diff A B [--json]\n\n"
    "One line per difference, 'PATH: BEFORE -> AFTER', or \"equal\": header,\n"
    "sections matched by name, segments, comment lines and each debug value\n"
    "element by element, not the layout saving recomputes. Exits with 0 when\n"
    "equal, 1 when not, 2 on bad usage.\n\n"
    "  --json   the differences as data (see docs/cli.md)\n",
    declareDiff};

}  // namespace cli
}  // namespace zelk_elf
