// Reading the shared corpus and writing bytes in tests.
#ifndef ZELK_ELF_TESTS_ELF_TEST_FILES_H_
#define ZELK_ELF_TESTS_ELF_TEST_FILES_H_

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace zelk_elf {
namespace testing {

inline std::string sharedPath(const std::string& relative) {
  return std::string(ZELK_ELF_SHARED_DIR) + "/" + relative;
}

// The whole file; empty when it cannot be read.
inline std::vector<uint8_t> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                              std::istreambuf_iterator<char>());
}

inline std::vector<uint8_t> readShared(const std::string& relative) {
  return readFile(sharedPath(relative));
}

// Regular files of a folder under the shared directory, sorted by name.
inline std::vector<std::string> listShared(const std::string& relative) {
  std::vector<std::string> names;
  for (const auto& entry :
       std::filesystem::directory_iterator(sharedPath(relative))) {
    if (entry.is_regular_file()) {
      names.push_back(entry.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

// "0a0B" -> {0x0a, 0x0b}; "EMPTY" -> {}.
inline std::vector<uint8_t> hexBytes(const std::string& hex) {
  std::vector<uint8_t> bytes;
  if (hex == "EMPTY") return bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(
        static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// Little-endian field access in saved images.
inline uint32_t readLE(const std::vector<uint8_t>& bytes, size_t offset,
                       size_t width) {
  uint32_t value = 0;
  for (size_t i = 0; i < width; ++i) {
    value |= static_cast<uint32_t>(bytes.at(offset + i)) << (8 * i);
  }
  return value;
}

inline void writeLE(std::vector<uint8_t>& bytes, size_t offset, size_t width,
                    uint32_t value) {
  for (size_t i = 0; i < width; ++i) {
    bytes.at(offset + i) = static_cast<uint8_t>(value >> (8 * i));
  }
}

}  // namespace testing
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_ELF_TEST_FILES_H_
