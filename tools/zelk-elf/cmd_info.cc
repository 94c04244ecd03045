// zelk-elf info: the ELF header, the section table and the segments.
//
// Header fields come from the public class; the class, byte order, offsets
// and segments are not part of its face, so those come from the engine,
// which parses the same bytes the same way.
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "absl/strings/str_join.h"
#include "elf/internal.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/command.h"
#include "tools/zelk-elf/elf_names.h"
#include "tools/zelk-elf/image_file.h"
#include "tools/zelk-elf/json_writer.h"
#include "tools/zelk-elf/parse.h"
#include "tools/zelk-elf/text_format.h"

namespace zelk_elf {
namespace cli {
namespace {

constexpr char kHelp[] =
    "usage: zelk-elf info FILE [--json]\n"
    "\n"
    "Shows the ELF header (class, byte order, type, machine, entry), the\n"
    "section table, the segments with the sections they carry, the .comment\n"
    "lines and the size of .text.\n"
    "\n"
    "  --json   machine-readable output (schema 1, see docs/cli.md)\n"
    "  --help   this text\n";

// Section names by index, for segment listings; "?" past the table.
std::string sectionNameAt(const engine::Image& image, size_t index) {
  return index < image.sections().size() ? std::string(image.sections()[index].name) : "?";
}

std::string className(uint8_t elf_class) {
  return elf_class == engine::kClass64 ? "64-bit" : "32-bit";
}

std::string byteOrderName(uint8_t encoding) {
  return encoding == engine::kDataMsb ? "big-endian" : "little-endian";
}

void writeText(const ELF& elf, const engine::Image& image, std::string* out) {
  const int address_digits = image.elfClass() == engine::kClass64 ? 16 : 8;
  ValueName type = fileTypeName(elf.getType());
  absl::StrAppend(out, "ELF header:\n");
  TextTable header({false, false});
  header.addRow({"Class:", className(image.elfClass())});
  header.addRow({"Byte order:", byteOrderName(image.encoding())});
  header.addRow({"Type:", absl::StrCat(elf.getType(), " (", type.short_name,
                                       ", ", type.long_name, ")")});
  header.addRow({"Machine:", absl::StrFormat("0x%04x (%u)", elf.getMachine(),
                                             elf.getMachine())});
  header.addRow({"Entry:", hexValue(elf.getEntry(), address_digits)});
  absl::StrAppend(out, header.render("  "));

  absl::StrAppend(out, "\nSections (", image.sections().size(), "):\n");
  TextTable sections(
      {false, false, false, false, false, false, false, false, true});
  sections.addRow({"[Nr]", "Name", "Type", "Flags", "Address", "Offset", "Size",
                   "Held", "Align"});
  for (size_t i = 0; i < image.sections().size(); ++i) {
    const engine::Section& s = image.sections()[i];
    sections.addRow(
        {absl::StrFormat("[%2u]", i), std::string(s.name),
         sectionTypeName(s.header.type).short_name, sectionFlagLetters(s.header.flags),
         absl::StrFormat("%0*x", address_digits, s.header.addr),
         absl::StrFormat("%06x", s.header.offset), absl::StrFormat("%06x", s.header.size),
         absl::StrFormat("%06x", s.bytes().size()), absl::StrCat(s.header.addralign)});
  }
  absl::StrAppend(out, sections.render("  "));
  absl::StrAppend(
      out,
      "  Size is the recorded size, Held the bytes the image holds.\n"
      "  Flags: W write, A alloc, X execute, M merge, S strings, I info link,\n"
      "  L link order, O OS-specific, G group, T TLS, C compressed, "
      "x unknown.\n");

  absl::StrAppend(out, "\nSegments (", image.segments().size(), "):\n");
  if (image.segments().size() > 0) {
    TextTable segments(
        {false, false, false, false, false, false, false, false, false, false});
    segments.addRow({"[Nr]", "Type", "Offset", "VirtAddr", "PhysAddr",
                     "FileSize", "MemSize", "Flags", "Align", "Sections"});
    for (size_t i = 0; i < image.segments().size(); ++i) {
      const engine::Segment& g = image.segments()[i];
      std::vector<std::string> names;
      for (uint16_t index : g.sections) {
        names.push_back(sectionNameAt(image, index));
      }
      segments.addRow(
          {absl::StrFormat("[%2u]", i), segmentTypeName(g.header.type).short_name,
           absl::StrFormat("%06x", g.header.offset),
           absl::StrFormat("%0*x", address_digits, g.header.vaddr),
           absl::StrFormat("%0*x", address_digits, g.header.paddr),
           absl::StrFormat("%06x", g.header.filesz),
           absl::StrFormat("%06x", g.header.memsz),
           segmentFlagLetters(g.header.flags), absl::StrFormat("0x%x", g.header.align),
           absl::StrJoin(names, " ")});
    }
    absl::StrAppend(out, segments.render("  "));
  }

  if (elf.commentInfo) {
    absl::StrAppend(out, "\nComment lines (", elf.commentInfo->size(), "):\n");
    for (absl::string_view line : *elf.commentInfo) {
      absl::StrAppend(out, "  ", quoteText(line), "\n");
    }
  } else {
    absl::StrAppend(out, "\nComment lines: none (no .comment data)\n");
  }
  if (elf.text) {
    absl::StrAppend(out, "Text: ", elf.text->size(), " bytes at ",
                    hexValue(elf.getTextAddr(), 8), "\n");
  } else {
    absl::StrAppend(out, "Text: none (no .text section)\n");
  }
}

void writeNames(JsonWriter& json, const std::vector<std::string>& names) {
  json.beginArray();
  for (const std::string& name : names) json.string(name);
  json.endArray();
}

void writeJson(const ELF& elf, const engine::Image& image, std::string* out) {
  JsonWriter json(out);
  json.beginObject();
  json.member("schema", uint64_t{1});
  json.member("class", className(image.elfClass()));
  json.member("byte_order", byteOrderName(image.encoding()));
  json.member("type", uint64_t{elf.getType()});
  json.member("type_name", fileTypeName(elf.getType()).long_name);
  json.member("machine", uint64_t{elf.getMachine()});
  json.member("entry", elf.getEntry());

  json.key("sections");
  json.beginArray();
  for (size_t i = 0; i < image.sections().size(); ++i) {
    const engine::Section& s = image.sections()[i];
    json.beginObject();
    json.member("index", uint64_t{i});
    json.member("name", s.name);
    json.member("type", uint64_t{s.header.type});
    json.member("type_name", sectionTypeName(s.header.type).long_name);
    json.member("flags", s.header.flags);
    json.key("flag_names");
    writeNames(json, sectionFlagNames(s.header.flags));
    json.member("address", s.header.addr);
    json.member("offset", s.header.offset);
    json.member("recorded_size", s.header.size);
    json.member("bytes_held", uint64_t{s.bytes().size()});
    json.member("alignment", s.header.addralign);
    json.endObject();
  }
  json.endArray();

  json.key("segments");
  json.beginArray();
  for (size_t i = 0; i < image.segments().size(); ++i) {
    const engine::Segment& g = image.segments()[i];
    json.beginObject();
    json.member("index", uint64_t{i});
    json.member("type", uint64_t{g.header.type});
    json.member("type_name", segmentTypeName(g.header.type).long_name);
    json.member("flags", uint64_t{g.header.flags});
    json.key("flag_names");
    writeNames(json, segmentFlagNames(g.header.flags));
    json.member("offset", g.header.offset);
    json.member("virtual_address", g.header.vaddr);
    json.member("physical_address", g.header.paddr);
    json.member("file_size", g.header.filesz);
    json.member("memory_size", g.header.memsz);
    json.member("alignment", g.header.align);
    json.key("sections");
    json.beginArray();
    for (uint16_t index : g.sections) {
      json.beginObject();
      json.member("index", uint64_t{index});
      json.member("name", sectionNameAt(image, index));
      json.endObject();
    }
    json.endArray();
    json.endObject();
  }
  json.endArray();

  json.key("comment_lines");
  if (elf.commentInfo) {
    json.beginArray();
    for (absl::string_view line : *elf.commentInfo) json.string(line);
    json.endArray();
  } else {
    json.null();
  }
  json.key("text");
  if (elf.text) {
    json.beginObject();
    json.member("address", uint64_t{elf.getTextAddr()});
    json.member("size", uint64_t{elf.text->size()});
    json.member("bytes", toHex(elf.text->data(), elf.text->size()));
    json.endObject();
  } else {
    json.null();
  }
  json.endObject();
}

int runInfo(const std::vector<std::string>& args, std::string* out) {
  FileArgs parsed = parseFileArgs(args, {"--json"});
  if (parsed.help) {
    *out = kHelp;
    return kExitOk;
  }
  ImageFile file = loadImageFile(parsed.file);
  const engine::Image& image = imageOf(file.elf);
  if (parsed.has("--json")) {
    writeJson(file.elf, image, out);
  } else {
    writeText(file.elf, image, out);
  }
  return kExitOk;
}

}  // namespace

const Command kInfoCommand = {"info", "header, sections and segments", kHelp,
                              runInfo};

}  // namespace cli
}  // namespace zelk_elf
