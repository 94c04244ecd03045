#include "debuginfo/diagnose.h"

#include <cstdint>
#include <cstring>

#include "debuginfo/debug_sections.h"
#include "debuginfo/payloads.h"
#include "serialize/decoder.h"

namespace zelk_elf {
namespace {

// A memory reader that remembers where the most recent scalar or string
// began. When a decode fails, that is the value that could not be read.
class TrackingReader {
 public:
  TrackingReader(const uint8_t* data, size_t size)
      : p_(data), size_(size), pos_(0) {}

  size_t read(void* dst, size_t n) {
    size_t c = n < remaining() ? n : remaining();
    if (c != 0) std::memcpy(dst, p_ + pos_, c);
    pos_ += c;
    return c;
  }
  size_t skip(size_t n) {
    size_t c = n < remaining() ? n : remaining();
    pos_ += c;
    return c;
  }
  size_t remaining() const { return size_ - pos_; }
  void markValue() { last_value_ = pos_; }
  size_t lastValue() const { return last_value_; }

 private:
  const uint8_t* p_;
  size_t size_;
  size_t pos_;
  size_t last_value_ = 0;
};

struct DiscardSink {
  template <typename T>
  void operator()(T&&) {}
};

}  // namespace

absl::optional<DebugDecodeFailure> diagnoseDebugSections(
    const engine::Image& image) {
  using tolva_lib::serialize::binary::Decoder;
  for (size_t i = 0; i < debuginfo_internal::kDebugSectionCount; ++i) {
    const engine::Section* section = image.findSection(kDebugSectionNames[i]);
    if (section == nullptr) continue;
    TrackingReader reader(section->data(), section->dataSize());
    Decoder<TrackingReader> decoder(reader);
    if (debuginfo_internal::decodeDebugPayload(i, decoder, DiscardSink{})) {
      continue;
    }
    DebugDecodeFailure failure;
    failure.section = kDebugSectionNames[i];
    failure.offset = reader.lastValue();
    failure.payload_size = section->dataSize();
    return failure;
  }
  return absl::nullopt;
}

}  // namespace zelk_elf
