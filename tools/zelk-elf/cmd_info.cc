// zelk-elf info: the ELF header, the section table and the segments; and
// zelk-elf check: does the image load, and if not, why.

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "absl/strings/str_join.h"
#include "tools/zelk-elf/image_view.h"
#include "tools/zelk-elf/printer.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

std::string offset(uint64_t value) { return absl::StrFormat("%06x", value); }

void writeInfo(const ELF& elf, const ImageView& image, Printer& out) {
  const int digits = image.is_64_bit ? 16 : 8;
  const auto address = [digits](uint64_t value) { return absl::StrFormat("%0*x", digits, value); };
  const ValueName type = fileTypeName(elf.getType());
  out.line("ELF header:");
  out.value("  Class:      ", {{"class", image.className(), image.className()}});
  out.value("  Byte order: ", {{"byte_order", image.byteOrderName(), image.byteOrderName()}});
  out.value("  Type:       ",
            {{"type", elf.getType(),
              absl::StrCat(elf.getType(), " (", type.short_name, ", ", type.long_name, ")")},
             jsonOnly("type_name", type.long_name)});
  out.value("  Machine:    ", {{"machine", elf.getMachine(),
                                absl::StrFormat("0x%04x (%u)", elf.getMachine(),
                                                elf.getMachine())}});
  out.value("  Entry:      ", {{"entry", elf.getEntry(), hexValue(elf.getEntry(), digits)}});

  const std::vector<SectionView>& sections = image.sections;
  std::vector<Column> columns = {{"[Nr]"}, {"Name"},   {"Type"}, {"Flags"}, {"Address"},
                                 {"Offset"}, {"Size"}, {"Held"}, {"Align", true}};
  out.table({"sections", absl::StrCat("\nSections (", sections.size(), "):"), columns,
             sections.size(), true, true},
            [&](size_t i) -> Cells {
              const SectionView& s = sections[i];
              return {{"index", i, rowNumber(i)},
                      {"name", byteString(s.name), escapeText(s.name)},
                      {"type", s.type, sectionTypeName(s.type).short_name},
                      jsonOnly("type_name", sectionTypeName(s.type).long_name),
                      {"flags", s.flags, sectionFlagLetters(s.flags)},
                      jsonOnly("flag_names", sectionFlagNames(s.flags)),
                      {"address", s.address, address(s.address)},
                      {"offset", s.offset, offset(s.offset)},
                      {"recorded_size", s.size, offset(s.size)},
                      {"bytes_held", s.bytes.size(), offset(s.bytes.size())},
                      {"alignment", s.alignment, absl::StrCat(s.alignment)}};
            });
  out.line("  Size is the recorded size, Held the bytes the image holds.\n"
           "  Flags: W write, A alloc, X execute, M merge, S strings, I info link,\n"
           "  L link order, O OS-specific, G group, T TLS, C compressed, x unknown.");

  const std::vector<SegmentView>& segments = image.segments;
  columns = {{"[Nr]"},    {"Type"},    {"Offset"}, {"VirtAddr"}, {"PhysAddr"},
             {"FileSize"}, {"MemSize"}, {"Flags"},  {"Align"},    {"Sections"}};
  out.table({"segments", absl::StrCat("\nSegments (", segments.size(), "):"), columns,
             segments.size()},
            [&](size_t i) -> Cells {
              const SegmentView& g = segments[i];
              Json members = Json::array();
              std::vector<std::string> names;
              for (uint16_t index : g.sections) {
                const absl::string_view name = image.sectionName(index);
                if (out.json()) {
                  members.push_back({{"index", index}, {"name", byteString(name)}});
                } else {
                  names.push_back(escapeText(name));
                }
              }
              return {{"index", i, rowNumber(i)},
                      {"type", g.type, segmentTypeName(g.type).short_name},
                      jsonOnly("type_name", segmentTypeName(g.type).long_name),
                      jsonOnly("flags", g.flags),
                      jsonOnly("flag_names", segmentFlagNames(g.flags)),
                      {"offset", g.offset, offset(g.offset)},
                      {"virtual_address", g.virtual_address, address(g.virtual_address)},
                      {"physical_address", g.physical_address, address(g.physical_address)},
                      {"file_size", g.file_size, offset(g.file_size)},
                      {"memory_size", g.memory_size, offset(g.memory_size)},
                      textOnly(segmentFlagLetters(g.flags)),
                      {"alignment", g.alignment, absl::StrFormat("0x%x", g.alignment)},
                      {"sections", std::move(members), absl::StrJoin(names, " ")}};
            });

  const auto* lines = pointer(elf.commentInfo);
  out.table({"comment_lines",
             lines ? absl::StrCat("\nComment lines (", lines->size(), "):")
                   : "\nComment lines: none (no .comment data)",
             {{""}}, lines ? lines->size() : 0, lines != nullptr},
            [&](size_t i) -> Cells {
              return {{"", byteString((*lines)[i]), quoteText((*lines)[i])}};
            });
  out.value("Text: ", {{"text",
                        elf.text ? Json{{"address", elf.getTextAddr()},
                                        {"size", elf.text->size()},
                                        {"bytes", toHex(*elf.text)}}
                                 : Json(),
                        elf.text ? absl::StrCat(elf.text->size(), " bytes at ",
                                                hexValue(elf.getTextAddr(), 8))
                                 : "none (no .text section)"}});
  out.end();
}

std::function<int()> declareInfo(CLI::App& app) {
  auto args = declareFileArgs(app, "--json", true);
  return [args] {
    ELF elf = loadImage(args->file, args->force);
    writeInfo(elf, viewOf(elf), *makePrinter(args->flag, std::cout));
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
