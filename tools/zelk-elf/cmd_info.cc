// zelk-elf info: the ELF header, the section table and the segments; and
// zelk-elf check: does the image load, and if not, why.

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "absl/strings/str_join.h"
#include "tools/zelk-elf/image_view.h"
#include "tools/zelk-elf/json.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

void writeText(const ELF& elf, const ImageView& image, std::ostream& out) {
  const int digits = image.is_64_bit ? 16 : 8;
  const auto hex = [digits](uint64_t value) {
    return absl::StrFormat("%0*x", digits, value);
  };
  const ValueName type = fileTypeName(elf.getType());
  out << "ELF header:\n  Class:      " << image.className()
      << "\n  Byte order: " << image.byteOrderName()
      << "\n  Type:       " << elf.getType() << " (" << type.short_name << ", "
      << type.long_name << ")\n"
      << absl::StrFormat("  Machine:    0x%04x (%u)\n", elf.getMachine(),
                         elf.getMachine())
      << "  Entry:      " << hexValue(elf.getEntry(), digits) << "\n";
  const std::vector<SectionView>& sections = image.sections;
  out << "\nSections (" << sections.size() << "):\n";
  printTable(out, "  ",
             {false, false, false, false, false, false, false, false, true},
             sections.size() + 1, [&](size_t row) -> std::vector<std::string> {
               if (row == 0) {
                 return {"[Nr]",   "Name", "Type", "Flags", "Address",
                         "Offset", "Size", "Held", "Align"};
               }
               const SectionView& s = sections[row - 1];
               return {absl::StrFormat("[%2u]", row - 1),
                       escapeText(s.name),
                       sectionTypeName(s.type).short_name,
                       sectionFlagLetters(s.flags),
                       hex(s.address),
                       absl::StrFormat("%06x", s.offset),
                       absl::StrFormat("%06x", s.size),
                       absl::StrFormat("%06x", s.bytes.size()),
                       absl::StrCat(s.alignment)};
             });
  out << "  Size is the recorded size, Held the bytes the image holds.\n"
         "  Flags: W write, A alloc, X execute, M merge, S strings, I info "
         "link,\n"
         "  L link order, O OS-specific, G group, T TLS, C compressed, "
         "x unknown.\n";

  const std::vector<SegmentView>& segments = image.segments;
  out << "\nSegments (" << segments.size() << "):\n";
  if (!segments.empty()) {
    printTable(out, "  ", std::vector<bool>(10, false), segments.size() + 1,
               [&](size_t row) -> std::vector<std::string> {
                 if (row == 0) {
                   return {"[Nr]",     "Type",     "Offset",  "VirtAddr",
                           "PhysAddr", "FileSize", "MemSize", "Flags",
                           "Align",    "Sections"};
                 }
                 const SegmentView& g = segments[row - 1];
                 std::vector<std::string> names;
                 for (uint16_t index : g.sections) {
                   names.push_back(escapeText(image.sectionName(index)));
                 }
                 return {absl::StrFormat("[%2u]", row - 1),
                         segmentTypeName(g.type).short_name,
                         absl::StrFormat("%06x", g.offset),
                         hex(g.virtual_address),
                         hex(g.physical_address),
                         absl::StrFormat("%06x", g.file_size),
                         absl::StrFormat("%06x", g.memory_size),
                         segmentFlagLetters(g.flags),
                         absl::StrFormat("0x%x", g.alignment),
                         absl::StrJoin(names, " ")};
               });
  }

  if (elf.commentInfo) {
    out << "\nComment lines (" << elf.commentInfo->size() << "):\n";
    for (absl::string_view line : *elf.commentInfo) {
      out << "  " << quoteText(line) << "\n";
    }
  } else {
    out << "\nComment lines: none (no .comment data)\n";
  }
  if (elf.text) {
    out << "Text: " << elf.text->size() << " bytes at "
        << hexValue(elf.getTextAddr(), 8) << "\n";
  } else {
    out << "Text: none (no .text section)\n";
  }
}

void writeJson(const ELF& elf, const ImageView& image, std::ostream& out) {
  JsonStream json(out);
  json.member("schema", 1);
  json.member("class", image.className());
  json.member("byte_order", image.byteOrderName());
  json.member("type", elf.getType());
  json.member("type_name", fileTypeName(elf.getType()).long_name);
  json.member("machine", elf.getMachine());
  json.member("entry", elf.getEntry());
  json.beginArray("sections");
  for (size_t i = 0; i < image.sections.size(); ++i) {
    const SectionView& s = image.sections[i];
    json.element({{"index", i},
                  {"name", byteString(s.name)},
                  {"type", s.type},
                  {"type_name", sectionTypeName(s.type).long_name},
                  {"flags", s.flags},
                  {"flag_names", sectionFlagNames(s.flags)},
                  {"address", s.address},
                  {"offset", s.offset},
                  {"recorded_size", s.size},
                  {"bytes_held", s.bytes.size()},
                  {"alignment", s.alignment}});
  }
  json.endArray();
  json.beginArray("segments");
  for (size_t i = 0; i < image.segments.size(); ++i) {
    const SegmentView& g = image.segments[i];
    Json sections = Json::array();
    for (uint16_t index : g.sections) {
      sections.push_back(
          {{"index", index}, {"name", byteString(image.sectionName(index))}});
    }
    json.element({{"index", i},
                  {"type", g.type},
                  {"type_name", segmentTypeName(g.type).long_name},
                  {"flags", g.flags},
                  {"flag_names", segmentFlagNames(g.flags)},
                  {"offset", g.offset},
                  {"virtual_address", g.virtual_address},
                  {"physical_address", g.physical_address},
                  {"file_size", g.file_size},
                  {"memory_size", g.memory_size},
                  {"alignment", g.alignment},
                  {"sections", std::move(sections)}});
  }
  json.endArray();
  Json lines;  // null without .comment data
  if (elf.commentInfo) {
    lines = Json::array();
    for (absl::string_view line : *elf.commentInfo) {
      lines.push_back(byteString(line));
    }
  }
  json.member("comment_lines", lines);
  json.member("text", elf.text ? Json{{"address", elf.getTextAddr()},
                                      {"size", elf.text->size()},
                                      {"bytes", toHex(*elf.text)}}
                               : Json());
  json.end();
}

std::function<int()> declareInfo(CLI::App& app) {
  auto args = declareFileArgs(app, "--json", true);
  return [args] {
    ELF elf = loadImage(args->file, args->force);
    ImageView image = viewOf(elf);
    args->flag ? writeJson(elf, image, std::cout)
               : writeText(elf, image, std::cout);
    return kExitOk;
  };
}

std::function<int()> declareCheck(CLI::App& app) {
  auto args = declareFileArgs(app, nullptr, true);
  return [args] {
    loadImage(args->file, args->force);  // throws with the reason
    std::cout << escapeText(args->file, "") << ": ok\n";
    return kExitOk;
  };
}

}  // namespace

const Command kInfoCommand = {
    "info", "header, sections and segments",
    "usage: zelk-elf info FILE [--json] [--force]\n\n"
    "The ELF header, section table, segments, .comment lines and .text size\n"
    "of FILE ('-': standard input).\n\n"
    "  --json   machine-readable output (schema 1, see docs/cli.md)\n"
    "  --force  show an image with extended section numbering as loaded\n"
    "           (without the sections it counts in section 0)\n",
    declareInfo};

const Command kCheckCommand = {
    "check", "exit 0 if the image loads, else why",
    "usage: zelk-elf check FILE [--force]\n\n"
    "Prints \"FILE: ok\" and exits with 0 when the image loads; otherwise\n"
    "says why in one line on stderr and exits with 1. An image with extended\n"
    "section numbering, whose sections the library does not read, fails\n"
    "unless --force is given.\n",
    declareCheck};

}  // namespace cli
}  // namespace zelk_elf
