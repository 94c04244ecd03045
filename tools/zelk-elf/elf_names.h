// Names of ELF header, section and segment values, in two spellings: the
// short readelf-style one for text output and a spelled-out one for JSON.
#ifndef ZELK_ELF_TOOLS_ZELK_ELF_ELF_NAMES_H_
#define ZELK_ELF_TOOLS_ZELK_ELF_ELF_NAMES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace zelk_elf {
namespace cli {

struct ValueName {
  std::string short_name;  // "PROGBITS"; the value in hex when unknown
  std::string long_name;   // "program_bits"; "unknown" when unknown
};

ValueName fileTypeName(uint16_t type);
ValueName sectionTypeName(uint32_t type);
ValueName segmentTypeName(uint32_t type);

// readelf-style letters ("WAX"), 'x' standing for any unknown bits.
std::string sectionFlagLetters(uint64_t flags);
// Spelled-out names of the known bits, lowest bit first.
std::vector<std::string> sectionFlagNames(uint64_t flags);

// "RWE" with spaces for clear bits.
std::string segmentFlagLetters(uint32_t flags);
std::vector<std::string> segmentFlagNames(uint32_t flags);

}  // namespace cli
}  // namespace zelk_elf

#endif  // ZELK_ELF_TOOLS_ZELK_ELF_ELF_NAMES_H_
