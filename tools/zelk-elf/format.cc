// Parsing arguments and formatting text: numbers, hex data, quoted strings,
// tables, and the names of ELF values.
#include <algorithm>

#include "absl/strings/escaping.h"
#include "absl/strings/match.h"
#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "tools/zelk-elf/tool.h"

namespace zelk_elf {
namespace cli {
namespace {

constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

struct NamedValue {
  uint64_t value;
  const char* short_name;
  const char* long_name;
};

template <size_t N>
ValueName lookup(const NamedValue (&table)[N], uint64_t value) {
  for (const NamedValue& entry : table) {
    if (entry.value == value) return {entry.short_name, entry.long_name};
  }
  return {absl::StrFormat("0x%x", value), "unknown"};
}

// clang-format off
constexpr NamedValue kFileTypes[] = {
    {0, "NONE", "none"}, {1, "REL", "relocatable"}, {2, "EXEC", "executable"},
    {3, "DYN", "shared_object"}, {4, "CORE", "core"}};

constexpr NamedValue kSectionTypes[] = {
    {0, "NULL", "null"}, {1, "PROGBITS", "program_bits"},
    {2, "SYMTAB", "symbol_table"}, {3, "STRTAB", "string_table"},
    {4, "RELA", "relocations_with_addends"}, {5, "HASH", "symbol_hash_table"},
    {6, "DYNAMIC", "dynamic_linking"}, {7, "NOTE", "note"},
    {8, "NOBITS", "no_bits"}, {9, "REL", "relocations"},
    {10, "SHLIB", "reserved_shlib"}, {11, "DYNSYM", "dynamic_symbol_table"},
    {14, "INIT_ARRAY", "initializer_array"},
    {15, "FINI_ARRAY", "finalizer_array"},
    {16, "PREINIT_ARRAY", "preinitializer_array"}, {17, "GROUP", "group"},
    {18, "SYMTAB_SHNDX", "symbol_table_section_indexes"},
    {0x6ffffff6, "GNU_HASH", "gnu_hash"},
    {0x6ffffffd, "VERDEF", "version_definitions"},
    {0x6ffffffe, "VERNEED", "version_needs"},
    {0x6fffffff, "VERSYM", "version_symbols"}};

constexpr NamedValue kSegmentTypes[] = {
    {0, "NULL", "null"}, {1, "LOAD", "loadable"},
    {2, "DYNAMIC", "dynamic_linking"}, {3, "INTERP", "interpreter"},
    {4, "NOTE", "note"}, {5, "SHLIB", "reserved_shlib"},
    {6, "PHDR", "program_header_table"}, {7, "TLS", "thread_local_storage"},
    {0x6474e550, "GNU_EH_FRAME", "gnu_exception_frame"},
    {0x6474e551, "GNU_STACK", "gnu_stack"},
    {0x6474e552, "GNU_RELRO", "gnu_read_only_after_relocation"},
    {0x6474e553, "GNU_PROPERTY", "gnu_property"}};
// clang-format on

struct FlagBit {
  uint64_t bit;
  char letter;
  const char* name;
};

constexpr FlagBit kSectionFlags[] = {
    {0x1, 'W', "write"},       {0x2, 'A', "allocate"},
    {0x4, 'X', "execute"},     {0x10, 'M', "merge"},
    {0x20, 'S', "strings"},    {0x40, 'I', "info_link"},
    {0x80, 'L', "link_order"}, {0x100, 'O', "os_nonconforming"},
    {0x200, 'G', "group"},     {0x400, 'T', "thread_local"},
    {0x800, 'C', "compressed"}};

constexpr FlagBit kSegmentFlags[] = {
    {0x4, 'R', "read"}, {0x2, 'W', "write"}, {0x1, 'E', "execute"}};

template <size_t N>
std::vector<std::string> flagNames(const FlagBit (&table)[N], uint64_t flags) {
  std::vector<std::string> names;
  for (const FlagBit& flag : table) {
    if (flags & flag.bit) names.push_back(flag.name);
  }
  return names;
}

}  // namespace

uint64_t parseNumberArg(absl::string_view text, uint64_t max,
                        absl::string_view what) {
  const bool hex = absl::StartsWith(text, "0x") || absl::StartsWith(text, "0X");
  const absl::string_view digits = text.substr(hex ? 2 : 0);
  uint64_t value = 0;
  // The checks of absl's parsers allow signs and spaces; ours do not.
  if (digits.empty() ||
      digits.find_first_not_of(hex ? kHexDigits : "0123456789") !=
          absl::string_view::npos ||
      !(hex ? absl::SimpleHexAtoi(digits, &value)
            : absl::SimpleAtoi(digits, &value))) {
    throw usageError(absl::StrCat("bad number '", text, "' for ", what,
                                  " (decimal or 0x hex expected)"));
  }
  if (value > max) {
    throw usageError(absl::StrCat("number '", text, "' for ", what,
                                  " is out of range (at most ", max, ")"));
  }
  return value;
}

std::vector<uint8_t> parseDataArg(absl::string_view text,
                                  absl::string_view what) {
  if (absl::StartsWith(text, "@")) {
    return readInput(std::string(text.substr(1)));
  }
  if (text.size() % 2 != 0 ||
      text.find_first_not_of(kHexDigits) != absl::string_view::npos) {
    throw usageError(absl::StrCat("bad data '", text, "' for ", what,
                                  " (an even number of hex digits or @PATH "
                                  "expected)"));
  }
  const std::string bytes = absl::HexStringToBytes(text);
  return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

std::string toHex(absl::Span<const uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size() * 2);
  for (uint8_t byte : bytes) {
    out.push_back("0123456789abcdef"[byte >> 4]);
    out.push_back("0123456789abcdef"[byte & 0xf]);
  }
  return out;
}

std::string escapeText(absl::string_view text, absl::string_view also) {
  // Runs of bytes that need no escape are copied whole, as names may be
  // megabytes long; the printable ones of `also` are found in a bit mask.
  uint64_t also_mask[2] = {0, 0};
  for (char c : also) {
    if (static_cast<uint8_t>(c) < 0x80) also_mask[c >> 6] |= uint64_t{1} << (c & 63);
  }
  const auto escaped = [&also_mask](char c) {
    const auto byte = static_cast<uint8_t>(c);
    return byte < 0x20 || byte >= 0x7f || (also_mask[byte >> 6] >> (byte & 63) & 1) != 0;
  };
  std::string out;
  out.reserve(text.size());
  size_t run = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!escaped(c)) continue;
    out.append(text.data() + run, i - run);
    run = i + 1;
    const auto byte = static_cast<uint8_t>(c);
    if (c == '\n' || c == '\t' || c == '\r') {
      out += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
    } else if (byte < 0x20 || byte >= 0x7f) {
      absl::StrAppendFormat(&out, "\\x%02x", byte);
    } else {
      out += {'\\', c};
    }
  }
  out.append(text.data() + run, text.size() - run);
  return out;
}

std::string quoteText(absl::string_view text) {
  return absl::StrCat("\"", escapeText(text, "\"\\"), "\"");
}

bool isUtf8(absl::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<uint8_t>(text[i]);
    if (byte < 0x80) {
      ++i;
      continue;
    }
    const size_t length = byte >= 0xc2 && byte <= 0xdf   ? 2
                          : byte >= 0xe0 && byte <= 0xef ? 3
                          : byte >= 0xf0 && byte <= 0xf4 ? 4
                                                         : 0;
    if (length == 0 || length > text.size() - i) return false;
    uint32_t code = byte & (0x7f >> length);
    for (size_t k = 1; k < length; ++k) {
      const auto next = static_cast<uint8_t>(text[i + k]);
      if ((next & 0xc0) != 0x80) return false;
      code = code << 6 | (next & 0x3f);
    }
    // No overlong forms, surrogates or code points past U+10FFFF: the JSON
    // parser refuses them, so they must go out as hex.
    static constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kLeast[length] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) {
      return false;
    }
    i += length;
  }
  return true;
}

std::string hexValue(uint64_t value, int digits) {
  return absl::StrFormat("0x%0*x", digits, value);
}

std::string rowNumber(size_t i) { return absl::StrFormat("[%2u]", i); }

std::string counted(size_t n, const char* one, const char* many) {
  return absl::StrCat(n, " ", n == 1 ? one : many);
}

std::string rangeLabel(const BasicBlockRange& range) {
  return absl::StrCat(hexValue(range.start, 8), "..", hexValue(range.end, 8));
}

ValueName fileTypeName(uint16_t type) { return lookup(kFileTypes, type); }
ValueName sectionTypeName(uint32_t type) { return lookup(kSectionTypes, type); }
ValueName segmentTypeName(uint32_t type) { return lookup(kSegmentTypes, type); }

std::string sectionFlagLetters(uint64_t flags) {
  std::string letters;
  uint64_t known = 0;
  for (const FlagBit& flag : kSectionFlags) {
    known |= flag.bit;
    if (flags & flag.bit) letters.push_back(flag.letter);
  }
  if (flags & ~known) letters.push_back('x');
  return letters;
}

std::vector<std::string> sectionFlagNames(uint64_t flags) {
  return flagNames(kSectionFlags, flags);
}

std::string segmentFlagLetters(uint32_t flags) {
  std::string letters;
  for (const FlagBit& flag : kSegmentFlags) {
    letters.push_back((flags & flag.bit) ? flag.letter : ' ');
  }
  return letters;
}

std::vector<std::string> segmentFlagNames(uint32_t flags) {
  return flagNames(kSegmentFlags, flags);
}

}  // namespace cli
}  // namespace zelk_elf
