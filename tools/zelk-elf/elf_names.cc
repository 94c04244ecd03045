#include "tools/zelk-elf/elf_names.h"

#include "absl/strings/str_format.h"

namespace zelk_elf {
namespace cli {
namespace {

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

constexpr NamedValue kFileTypes[] = {
    {0, "NONE", "none"},       {1, "REL", "relocatable"},
    {2, "EXEC", "executable"}, {3, "DYN", "shared_object"},
    {4, "CORE", "core"},
};

constexpr NamedValue kSectionTypes[] = {
    {0, "NULL", "null"},
    {1, "PROGBITS", "program_bits"},
    {2, "SYMTAB", "symbol_table"},
    {3, "STRTAB", "string_table"},
    {4, "RELA", "relocations_with_addends"},
    {5, "HASH", "symbol_hash_table"},
    {6, "DYNAMIC", "dynamic_linking"},
    {7, "NOTE", "note"},
    {8, "NOBITS", "no_bits"},
    {9, "REL", "relocations"},
    {10, "SHLIB", "reserved_shlib"},
    {11, "DYNSYM", "dynamic_symbol_table"},
    {14, "INIT_ARRAY", "initializer_array"},
    {15, "FINI_ARRAY", "finalizer_array"},
    {16, "PREINIT_ARRAY", "preinitializer_array"},
    {17, "GROUP", "group"},
    {18, "SYMTAB_SHNDX", "symbol_table_section_indexes"},
    {0x6ffffff6, "GNU_HASH", "gnu_hash"},
    {0x6ffffffd, "VERDEF", "version_definitions"},
    {0x6ffffffe, "VERNEED", "version_needs"},
    {0x6fffffff, "VERSYM", "version_symbols"},
};

constexpr NamedValue kSegmentTypes[] = {
    {0, "NULL", "null"},
    {1, "LOAD", "loadable"},
    {2, "DYNAMIC", "dynamic_linking"},
    {3, "INTERP", "interpreter"},
    {4, "NOTE", "note"},
    {5, "SHLIB", "reserved_shlib"},
    {6, "PHDR", "program_header_table"},
    {7, "TLS", "thread_local_storage"},
    {0x6474e550, "GNU_EH_FRAME", "gnu_exception_frame"},
    {0x6474e551, "GNU_STACK", "gnu_stack"},
    {0x6474e552, "GNU_RELRO", "gnu_read_only_after_relocation"},
    {0x6474e553, "GNU_PROPERTY", "gnu_property"},
};

struct FlagBit {
  uint64_t bit;
  char letter;
  const char* name;
};

constexpr FlagBit kSectionFlags[] = {
    {0x1, 'W', "write"},        {0x2, 'A', "allocate"},
    {0x4, 'X', "execute"},      {0x10, 'M', "merge"},
    {0x20, 'S', "strings"},     {0x40, 'I', "info_link"},
    {0x80, 'L', "link_order"},  {0x100, 'O', "os_nonconforming"},
    {0x200, 'G', "group"},      {0x400, 'T', "thread_local"},
    {0x800, 'C', "compressed"},
};

constexpr FlagBit kSegmentFlags[] = {
    {0x4, 'R', "read"}, {0x2, 'W', "write"}, {0x1, 'E', "execute"}};

}  // namespace

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
  std::vector<std::string> names;
  for (const FlagBit& flag : kSectionFlags) {
    if (flags & flag.bit) names.push_back(flag.name);
  }
  return names;
}

std::string segmentFlagLetters(uint32_t flags) {
  std::string letters;
  for (const FlagBit& flag : kSegmentFlags) {
    letters.push_back((flags & flag.bit) ? flag.letter : ' ');
  }
  return letters;
}

std::vector<std::string> segmentFlagNames(uint32_t flags) {
  std::vector<std::string> names;
  for (const FlagBit& flag : kSegmentFlags) {
    if (flags & flag.bit) names.push_back(flag.name);
  }
  return names;
}

}  // namespace cli
}  // namespace zelk_elf
