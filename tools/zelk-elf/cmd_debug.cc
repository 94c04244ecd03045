// zelk-elf debug: the nine decoded debug values of an image.
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "tools/zelk-elf/cli_error.h"
#include "tools/zelk-elf/command.h"
#include "tools/zelk-elf/debug_view.h"
#include "tools/zelk-elf/image_file.h"
#include "tools/zelk-elf/json_writer.h"
#include "tools/zelk-elf/text_format.h"

namespace zelk_elf {
namespace cli {
namespace {

constexpr char kHelp[] =
    "usage: zelk-elf debug FILE [--json]\n"
    "\n"
    "Shows the compiler's debug information decoded from the nine\n"
    ".zelk.dbg. sections: debug id, spill list, SWP list, CFG edges, source\n"
    "map, symbol map, PM size, verify info and latency list. A value is\n"
    "\"absent\" when its section is missing and \"present but empty\" when "
    "the\n"
    "section holds an empty list, map or text. Map keys are sorted.\n"
    "\n"
    "  --json   machine-readable output (schema 1, see docs/cli.md)\n"
    "  --help   this text\n";

std::string counted(size_t n, const char* one, const char* many) {
  return absl::StrCat(n, " ", n == 1 ? one : many);
}

std::string rowNumber(size_t i) { return absl::StrFormat("[%2u]", i); }

// "title (.zelk.dbg.x): " and the state of a value that may be absent or
// empty. Returns true when the caller should list the elements.
bool heading(std::string* out, const char* title, const char* section,
             bool present, size_t count, const char* one, const char* many) {
  absl::StrAppend(out, title, " (", section, "): ");
  if (!present) {
    absl::StrAppend(out, "absent\n");
    return false;
  }
  if (count == 0) {
    absl::StrAppend(out, "present but empty\n");
    return false;
  }
  absl::StrAppend(out, counted(count, one, many), "\n");
  return true;
}

void writeText(const ELF& elf, std::string* out) {
  absl::StrAppend(out, "debug id (.zelk.dbg.id): ");
  if (elf.dbgID) {
    absl::StrAppend(out, "kind ", elf.dbgID->kind, ", id0 ", elf.dbgID->id0,
                    ", id1 ", elf.dbgID->id1, "\n");
  } else {
    absl::StrAppend(out, "absent\n");
  }

  const SpillInfo* spill = elf.spillInfo ? &*elf.spillInfo : nullptr;
  if (heading(out, "spill list", ".zelk.dbg.spill", spill != nullptr,
              spill ? spill->locs.size() : 0, "entry", "entries")) {
    TextTable table({false, false, true, true, false});
    table.addRow({"[Nr]", "Address", "Index", "Kind", "Name"});
    for (size_t i = 0; i < spill->locs.size(); ++i) {
      const SpillLoc& loc = spill->locs[i];
      table.addRow({rowNumber(i), hexValue(loc.addr, 8),
                    absl::StrCat(loc.index), absl::StrCat(loc.kind),
                    quoteText(loc.name)});
    }
    absl::StrAppend(out, table.render("  "));
  }

  const SWPInfo* swp = elf.swpInfo ? &*elf.swpInfo : nullptr;
  if (heading(out, "SWP list", ".zelk.dbg.swp", swp != nullptr,
              swp ? swp->locs.size() : 0, "entry", "entries")) {
    TextTable table({false, false});
    table.addRow({"[Nr]", "Address"});
    for (size_t i = 0; i < swp->locs.size(); ++i) {
      table.addRow({rowNumber(i), hexValue(swp->locs[i].addr, 8)});
    }
    absl::StrAppend(out, table.render("  "));
  }

  const ControlFlowGraph* cfg = elf.cfgInfo ? &*elf.cfgInfo : nullptr;
  if (heading(out, "CFG edges", ".zelk.dbg.cfg", cfg != nullptr,
              cfg ? cfg->edges.size() : 0, "edge", "edges")) {
    TextTable table({false, false, false, false});
    table.addRow({"[Nr]", "First block", "", "Second block"});
    for (size_t i = 0; i < cfg->edges.size(); ++i) {
      table.addRow({rowNumber(i), rangeLabel(std::get<0>(cfg->edges[i])), "->",
                    rangeLabel(std::get<1>(cfg->edges[i]))});
    }
    absl::StrAppend(out, table.render("  "));
  }

  const SourceMap* src = elf.srcInfo ? &*elf.srcInfo : nullptr;
  if (heading(out, "source map", ".zelk.dbg.src", src != nullptr,
              src ? src->size() : 0, "source", "sources")) {
    for (const auto* entry : sortedEntries(*src)) {
      absl::StrAppend(out, "  ", quoteText(entry->first), ": ",
                      counted(entry->second.size(), "string", "strings"), "\n");
      for (size_t i = 0; i < entry->second.size(); ++i) {
        absl::StrAppend(out, "    ", rowNumber(i), " ",
                        quoteText(entry->second[i]), "\n");
      }
    }
  }

  const SymbolMap* sym = elf.symInfo ? &*elf.symInfo : nullptr;
  if (heading(out, "symbol map", ".zelk.dbg.sym", sym != nullptr,
              sym ? sym->size() : 0, "symbol", "symbols")) {
    TextTable table({false, true, false});
    table.addRow({"Name", "Kind", "Address"});
    for (const auto* entry : sortedEntries(*sym)) {
      table.addRow({quoteText(entry->first), absl::StrCat(entry->second.kind),
                    hexValue(entry->second.addr, 8)});
    }
    absl::StrAppend(out, table.render("  "));
  }

  absl::StrAppend(out, "PM size (.zelk.dbg.pmsize): ");
  if (elf.pmSize) {
    absl::StrAppend(out, *elf.pmSize, " (",
                    absl::StrFormat("0x%x", *elf.pmSize), ")\n");
  } else {
    absl::StrAppend(out, "absent\n");
  }

  absl::StrAppend(out, "verify info (.zelk.dbg.verifyinfo): ");
  if (!elf.verifyInfo) {
    absl::StrAppend(out, "absent\n");
  } else if (elf.verifyInfo->empty()) {
    absl::StrAppend(out, "present but empty\n");
  } else {
    absl::StrAppend(out, quoteText(*elf.verifyInfo), "\n");
  }

  const LatencyInfo* latency = elf.latencyInfo ? &*elf.latencyInfo : nullptr;
  if (heading(out, "latency list", ".zelk.dbg.latency", latency != nullptr,
              latency ? latency->locs.size() : 0, "entry", "entries")) {
    TextTable table({false, false, true, false});
    table.addRow({"[Nr]", "Address", "Kind", "Values"});
    for (size_t i = 0; i < latency->locs.size(); ++i) {
      const LatencyInfoLoc& loc = latency->locs[i];
      table.addRow({rowNumber(i), hexValue(loc.addr, 8), absl::StrCat(loc.kind),
                    absl::StrCat(loc.value0, " ", loc.value1, " ", loc.value2,
                                 " ", loc.value3)});
    }
    absl::StrAppend(out, table.render("  "));
  }
}

void writeRange(JsonWriter& json, const BasicBlockRange& range) {
  json.beginObject();
  json.member("start", uint64_t{range.start});
  json.member("end", uint64_t{range.end});
  json.endObject();
}

void writeJson(const ELF& elf, std::string* out) {
  JsonWriter json(out);
  json.beginObject();
  json.member("schema", uint64_t{1});

  json.key("debug_id");
  if (elf.dbgID) {
    json.beginObject();
    json.member("kind", uint64_t{elf.dbgID->kind});
    json.member("id0", uint64_t{elf.dbgID->id0});
    json.member("id1", uint64_t{elf.dbgID->id1});
    json.endObject();
  } else {
    json.null();
  }

  json.key("spill_list");
  if (elf.spillInfo) {
    json.beginArray();
    for (const SpillLoc& loc : elf.spillInfo->locs) {
      json.beginObject();
      json.member("address", uint64_t{loc.addr});
      json.member("index", uint64_t{loc.index});
      json.member("kind", uint64_t{loc.kind});
      json.member("name", loc.name);
      json.endObject();
    }
    json.endArray();
  } else {
    json.null();
  }

  json.key("swp_list");
  if (elf.swpInfo) {
    json.beginArray();
    for (const SWPLoc& loc : elf.swpInfo->locs) {
      json.beginObject();
      json.member("address", uint64_t{loc.addr});
      json.endObject();
    }
    json.endArray();
  } else {
    json.null();
  }

  json.key("cfg_edges");
  if (elf.cfgInfo) {
    json.beginArray();
    for (const auto& edge : elf.cfgInfo->edges) {
      json.beginObject();
      json.key("first");
      writeRange(json, std::get<0>(edge));
      json.key("second");
      writeRange(json, std::get<1>(edge));
      json.endObject();
    }
    json.endArray();
  } else {
    json.null();
  }

  json.key("source_map");
  if (elf.srcInfo) {
    json.beginArray();
    for (const auto* entry : sortedEntries(*elf.srcInfo)) {
      json.beginObject();
      json.member("source", entry->first);
      json.key("strings");
      json.beginArray();
      for (const std::string& text : entry->second) json.string(text);
      json.endArray();
      json.endObject();
    }
    json.endArray();
  } else {
    json.null();
  }

  json.key("symbol_map");
  if (elf.symInfo) {
    json.beginArray();
    for (const auto* entry : sortedEntries(*elf.symInfo)) {
      json.beginObject();
      json.member("symbol", entry->first);
      json.member("kind", uint64_t{entry->second.kind});
      json.member("address", uint64_t{entry->second.addr});
      json.endObject();
    }
    json.endArray();
  } else {
    json.null();
  }

  json.key("pm_size");
  if (elf.pmSize) {
    json.number(*elf.pmSize);
  } else {
    json.null();
  }

  json.key("verify_info");
  if (elf.verifyInfo) {
    json.string(*elf.verifyInfo);
  } else {
    json.null();
  }

  json.key("latency_list");
  if (elf.latencyInfo) {
    json.beginArray();
    for (const LatencyInfoLoc& loc : elf.latencyInfo->locs) {
      json.beginObject();
      json.member("address", uint64_t{loc.addr});
      json.member("kind", uint64_t{loc.kind});
      json.key("values");
      json.beginArray();
      for (uint8_t value : {loc.value0, loc.value1, loc.value2, loc.value3}) {
        json.number(value);
      }
      json.endArray();
      json.endObject();
    }
    json.endArray();
  } else {
    json.null();
  }
  json.endObject();
}

int runDebug(const std::vector<std::string>& args, std::string* out) {
  FileArgs parsed = parseFileArgs(args, {"--json"});
  if (parsed.help) {
    *out = kHelp;
    return kExitOk;
  }
  ImageFile file = loadImageFile(parsed.file);
  if (parsed.has("--json")) {
    writeJson(file.elf, out);
  } else {
    writeText(file.elf, out);
  }
  return kExitOk;
}

}  // namespace

const Command kDebugCommand = {"debug", "the decoded .zelk.dbg. sections",
                               kHelp, runDebug};

}  // namespace cli
}  // namespace zelk_elf
