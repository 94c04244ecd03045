// Writing a laid-out image. The pieces are the file header, the program
// header table, the bytes each section holds and the section header table,
// each encoded once and written as one run, in file order; the gaps between
// them are written as zeros, so any ostream that can be positioned works.
#include <algorithm>
#include <array>
#include <vector>

#include "absl/strings/str_cat.h"
#include "engine/image.h"
#include "engine/layout.h"

namespace zelk_elf {
namespace engine {
namespace {

struct Run {
  uint64_t offset;
  const uint8_t* bytes;
  size_t size;
};

bool writeZeros(std::ostream& out, uint64_t count) {
  static const std::array<char, 4096> kZeros{};
  while (count != 0) {
    const size_t chunk = static_cast<size_t>(std::min<uint64_t>(count, kZeros.size()));
    if (!out.write(kZeros.data(), static_cast<std::streamsize>(chunk))) return false;
    count -= chunk;
  }
  return true;
}

// Records `count` entries `entry_size` apart, the last one ending the run.
template <typename Records, typename Encode>
std::vector<uint8_t> encodeTable(const Records& records, size_t entry_size,
                                 size_t record_size, Encode encode) {
  if (records.empty()) return {};
  std::vector<uint8_t> run(entry_size * (records.size() - 1) + record_size);
  for (size_t i = 0; i < records.size(); ++i) encode(records[i], run.data() + i * entry_size);
  return run;
}

}  // namespace

absl::Status Image::save(std::ostream& out) {
  if (!out.good()) return absl::FailedPreconditionError("the output stream has failed");
  if (absl::StatusOr<uint64_t> size = layOut(); !size.ok()) return size.status();
  return write(out);
}

absl::StatusOr<uint64_t> Image::layOut() { return engine::layOut(*this); }

absl::Status Image::write(std::ostream& out) const {
  const FileHeader& h = header_;
  const RecordFormat& f = format();
  std::array<uint8_t, 64> file_header{};
  f.encodeFileHeader(h, file_header.data());
  const std::vector<uint8_t> program_headers = encodeTable(
      segments_, h.phentsize, f.segment_header_size,
      [&f](const Segment& g, uint8_t* at) { f.encodeSegmentHeader(g.header, at); });
  const std::vector<uint8_t> section_headers = encodeTable(
      sections_, h.shentsize, f.section_header_size,
      [&f](const Section& s, uint8_t* at) { f.encodeSectionHeader(s.header, at); });

  std::vector<Run> runs;
  runs.reserve(sections_.size() + 3);
  runs.push_back({0, file_header.data(), f.file_header_size});
  if (!program_headers.empty()) {
    runs.push_back({h.phoff, program_headers.data(), program_headers.size()});
  }
  // Index 0 is the null entry whatever it claims; a section holding fewer
  // bytes than it records leaves the rest of its space zero.
  for (size_t i = 1; i < sections_.size(); ++i) {
    const Section& s = sections_[i];
    const size_t held = static_cast<size_t>(std::min<uint64_t>(s.bytes().size(), s.header.size));
    if (s.header.type == kShtNull || s.header.type == kShtNobits || held == 0) continue;
    runs.push_back({s.header.offset, s.bytes().data(), held});
  }
  if (!section_headers.empty()) {
    runs.push_back({h.shoff, section_headers.data(), section_headers.size()});
  }
  // The layout never overlaps two runs; sorting keeps equal offsets in the
  // order above, and a run behind the end (never expected) is still placed.
  std::stable_sort(runs.begin(), runs.end(),
                   [](const Run& a, const Run& b) { return a.offset < b.offset; });

  out.seekp(0);
  uint64_t at = 0, end = 0;  // the put position and the end written
  for (const Run& run : runs) {
    if (run.offset >= end) {
      if (at != end) out.seekp(static_cast<std::streamoff>(end));
      if (!writeZeros(out, run.offset - end)) break;
    } else {
      out.seekp(static_cast<std::streamoff>(run.offset));
    }
    out.write(reinterpret_cast<const char*>(run.bytes),
              static_cast<std::streamsize>(run.size));
    at = run.offset + run.size;
    end = std::max(end, at);
    if (!out) break;
  }
  if (!out.good()) return absl::DataLossError("the output stream failed while writing");
  return absl::OkStatus();
}

absl::StatusOr<uint64_t> Image::savedSize() const {
  Image scratch(ScratchTag{});
  scratch.header_ = header_;
  scratch.sections_.resize(sections_.size());
  for (size_t i = 0; i < sections_.size(); ++i) {
    scratch.sections_[i].header = sections_[i].header;
    scratch.sections_[i].name = sections_[i].name;
    scratch.sections_[i].addr_init = sections_[i].addr_init;
  }
  scratch.segments_ = segments_;
  return scratch.layOut();
}

}  // namespace engine
}  // namespace zelk_elf
