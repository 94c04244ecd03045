// Helpers shared by the engine tests: files, saving to bytes, and the edits
// the library's class performs on an image, expressed in engine calls.
#ifndef ZELK_ELF_TESTS_ENGINE_ENGINE_TEST_UTIL_H_
#define ZELK_ELF_TESTS_ENGINE_ENGINE_TEST_UTIL_H_

#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "absl/strings/string_view.h"
#include "absl/types/optional.h"
#include "absl/types/span.h"
#include "engine/image.h"

namespace zelk_elf {
namespace engine {
namespace testing_util {

using Bytes = std::vector<uint8_t>;

inline std::string sharedDir() {
  const char* env = std::getenv("ZELK_ELF_SHARED_DIR");
  return env != nullptr && *env != '\0' ? env : ZELK_ELF_SHARED_DIR;
}

inline absl::optional<Bytes> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return absl::nullopt;
  return Bytes((std::istreambuf_iterator<char>(in)),
               std::istreambuf_iterator<char>());
}

// Saves into a plain string stream; empty when save fails.
inline absl::optional<Bytes> saveBytes(Image& image) {
  std::ostringstream out(std::ios::binary);
  if (!image.save(out).ok()) return absl::nullopt;
  const std::string s = out.str();
  return Bytes(s.begin(), s.end());
}

inline Bytes bytesOf(absl::string_view s) { return Bytes(s.begin(), s.end()); }

inline size_t indexOf(const Image& image, const Section& s) {
  return static_cast<size_t>(&s - image.sections().data());
}

// The library's raw section write: type PROGBITS, the bytes, alignment 1.
// Returns the section's index (references do not survive adding sections).
inline size_t setSection(Image& image, absl::string_view name, const Bytes& data) {
  Section* s = image.findSection(name);
  if (s == nullptr) s = &image.addSection(name);
  s->header.type = kShtProgbits;
  s->setData(data.data(), data.size());
  s->header.addralign = 1;
  return indexOf(image, *s);
}

// The library's text install: .text, and a PT_LOAD for it unless the image
// is relocatable or a segment already lists it. Returns the section's index.
inline size_t setText(Image& image, const Bytes& code, uint64_t align) {
  Section* s = image.findSection(".text");
  if (s == nullptr) s = &image.addSection(".text");
  s->header.type = kShtProgbits;
  s->header.flags = kShfAlloc | kShfExecInstr;
  s->setData(code.data(), code.size());
  s->header.addralign = align;
  const size_t index = indexOf(image, *s);
  if (image.header().type == kEtRel) return index;
  for (const Segment& g : image.segments()) {
    for (uint16_t x : g.sections) {
      if (x == index) return index;
    }
  }
  Segment& g = image.addSegment();
  g.header.type = kPtLoad;
  g.header.flags = kPfR | kPfX;
  g.header.align = 0x1000;
  g.addSectionIndex(static_cast<uint16_t>(index), align);
  return index;
}

// The library's comment write: non-empty lines, each NUL-terminated.
inline void setComment(Image& image, const std::vector<std::string>& lines) {
  if (lines.empty()) return;
  Bytes data;
  for (const auto& line : lines) {
    if (line.empty()) continue;
    data.insert(data.end(), line.begin(), line.end());
    data.push_back(0);
  }
  Section* s = image.findSection(".comment");
  if (s == nullptr) {
    s = &image.addSection(".comment");
    s->header.type = kShtProgbits;
    s->header.flags = kShfMerge | kShfStrings;
    s->header.entsize = 1;
    s->header.addralign = 1;
  }
  s->setData(data.data(), data.size());
}

}  // namespace testing_util
}  // namespace engine
}  // namespace zelk_elf

#endif  // ZELK_ELF_TESTS_ENGINE_ENGINE_TEST_UTIL_H_
