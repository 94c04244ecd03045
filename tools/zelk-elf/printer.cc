#include "tools/zelk-elf/printer.h"

#include <algorithm>

namespace zelk_elf {
namespace cli {
namespace {

// A column is at most this wide: a longer cell runs on and pushes the rest
// of its row right, so one long name cannot pad every row.
constexpr size_t kMaxColumnWidth = 32;

std::vector<std::string> textsOf(const Cells& cells) {
  std::vector<std::string> texts;
  for (const Cell& cell : cells) {
    if (cell.in_text) texts.push_back(cell.text);
  }
  return texts;
}

class TextPrinter : public Printer {
 public:
  explicit TextPrinter(std::ostream& out) : out_(out) {}

  void line(const std::string& text) override { out_ << text << '\n'; }
  void value(const std::string& label, const Cells& cells) override {
    out_ << label << absl::StrJoin(textsOf(cells), "") << '\n';
  }
  void table(const Table& table, const std::function<Cells(size_t)>& row) override {
    line(table.heading);
    const size_t count = table.count;
    const std::vector<Column>& columns = table.columns;
    if (count == 0 && !table.headed_when_empty) return;
    std::vector<std::string> header;
    for (const Column& column : columns) header.push_back(column.header);
    const bool headed = std::any_of(header.begin(), header.end(),
                                    [](const std::string& h) { return !h.empty(); });
    const auto texts = [&](size_t r) {
      return headed && r == 0 ? header : textsOf(row(r - headed));
    };
    const size_t rows = count + headed;
    std::vector<size_t> widths(columns.size(), 0);
    for (size_t r = 0; r < rows; ++r) {
      const std::vector<std::string> cells = texts(r);
      for (size_t i = 0; i < cells.size(); ++i) {
        widths[i] = std::max(widths[i], std::min(cells[i].size(), kMaxColumnWidth));
      }
    }
    std::string text;
    for (size_t r = 0; r < rows; ++r) {
      const std::vector<std::string> cells = texts(r);
      text = "  ";
      for (size_t i = 0; i < cells.size(); ++i) {
        const std::string padding(widths[i] - std::min(widths[i], cells[i].size()), ' ');
        const bool right = columns[i].right_aligned;
        absl::StrAppend(&text, i > 0 ? " " : "", right ? padding : "", cells[i],
                        right ? "" : padding);
      }
      text.erase(text.find_last_not_of(' ') + 1);
      line(text);
    }
  }
  void end() override {}
  bool json() const override { return false; }

 private:
  std::ostream& out_;
};

class JsonPrinter : public Printer {
 public:
  explicit JsonPrinter(std::ostream& out) : json_(out) { json_.member("schema", 1); }

  void line(const std::string&) override {}
  void value(const std::string&, const Cells& cells) override {
    for (const Cell& cell : cells) {
      if (cell.key != nullptr) json_.member(cell.key, cell.value);
    }
  }
  void table(const Table& table, const std::function<Cells(size_t)>& row) override {
    if (!table.present) return json_.member(table.key, nullptr);
    json_.beginArray(table.key);
    for (size_t i = 0; i < table.count; ++i) json_.element(jsonOf(row(i)));
    json_.endArray();
  }
  void end() override { json_.end(); }
  bool json() const override { return true; }

 private:
  JsonStream json_;
};

}  // namespace

std::unique_ptr<Printer> makePrinter(bool json, std::ostream& out) {
  if (json) return std::make_unique<JsonPrinter>(out);
  return std::make_unique<TextPrinter>(out);
}

Json jsonOf(Cells cells) {
  Json out = Json::object();
  for (Cell& cell : cells) {
    if (cell.key == nullptr) continue;
    if (*cell.key == '\0') return std::move(cell.value);
    out[cell.key] = std::move(cell.value);
  }
  return out;
}

Cells cellsOf(const std::tuple<BasicBlockRange, BasicBlockRange>& edge) {
  return {{"first", toJson(std::get<0>(edge)), rangeLabel(std::get<0>(edge))},
          textOnly("->"),
          {"second", toJson(std::get<1>(edge)), rangeLabel(std::get<1>(edge))}};
}

Cells entryCells(const char* key_name, const SourceMap::value_type& entry) {
  Json strings = Json::array();
  std::string text =
      absl::StrCat(quoteText(entry.first), ": ", counted(entry.second.size(), "string", "strings"));
  for (size_t i = 0; i < entry.second.size(); ++i) {
    strings.push_back(byteString(entry.second[i]));
    absl::StrAppend(&text, "\n    ", rowNumber(i), " ", quoteText(entry.second[i]));
  }
  return {{key_name, byteString(entry.first), std::move(text)},
          jsonOnly("strings", std::move(strings))};
}

Cells entryCells(const char* key_name, const SymbolMap::value_type& entry) {
  Cells cells = cellsOf(entry.second);
  cells.insert(cells.begin(), {key_name, byteString(entry.first), quoteText(entry.first)});
  return cells;
}

}  // namespace cli
}  // namespace zelk_elf
