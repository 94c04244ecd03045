// Writing a laid-out image. The pieces are the file header, the program
// header table, the bytes each section holds and the section header table,
// each encoded once and written as one run, in file order; the gaps between
// them are written as zeros, so any ostream that can be positioned works, and
// so does a buffer of the laid-out size.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "absl/container/inlined_vector.h"
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
  size_t sequence;  // keeps equal offsets in the order they were added
};

// Small images keep their header tables and runs on the stack.
using Scratch = absl::InlinedVector<uint8_t, 2048>;

// Writes straight into the stream's buffer: the runs are few and large, and
// the stream's formatting layer adds nothing to them.
bool put(std::streambuf& out, const void* bytes, size_t size) {
  return out.sputn(static_cast<const char*>(bytes), static_cast<std::streamsize>(size)) ==
         static_cast<std::streamsize>(size);
}

bool putZeros(std::streambuf& out, uint64_t count) {
  static const std::array<char, 4096> kZeros{};
  while (count != 0) {
    const size_t chunk = static_cast<size_t>(std::min<uint64_t>(count, kZeros.size()));
    if (!put(out, kZeros.data(), chunk)) return false;
    count -= chunk;
  }
  return true;
}

bool seek(std::streambuf& out, uint64_t offset) {
  const auto target = std::streampos(static_cast<std::streamoff>(offset));
  return out.pubseekpos(target, std::ios_base::out) == target;
}

// Records `count` entries `entry_size` apart, the last one ending the run.
template <typename Records, typename Encode>
Scratch encodeTable(const Records& records, size_t entry_size, size_t record_size,
                    Encode encode) {
  Scratch run(static_cast<size_t>(tableBytes(records.size(), entry_size, record_size)));
  for (size_t i = 0; i < records.size(); ++i) encode(records[i], run.data() + i * entry_size);
  return run;
}

// The pieces of a laid-out image in file order: the encoded header tables
// and the runs that point into them and into the sections' bytes.
struct Pieces {
  std::array<uint8_t, 64> file_header{};
  Scratch program_headers, section_headers;
  absl::InlinedVector<Run, 64> runs;
};

Pieces piecesOf(const Image& image) {
  const FileHeader& h = image.header();
  const RecordFormat& f = image.format();
  const absl::Span<const Section> sections = image.sections();
  const absl::Span<const Segment> segments = image.segments();
  Pieces pieces;
  f.encodeFileHeader(h, pieces.file_header.data());
  pieces.program_headers = encodeTable(
      segments, h.phentsize, f.segment_header_size,
      [&f](const Segment& g, uint8_t* at) { f.encodeSegmentHeader(g.header, at); });
  pieces.section_headers = encodeTable(
      sections, h.shentsize, f.section_header_size,
      [&f](const Section& s, uint8_t* at) { f.encodeSectionHeader(s.header, at); });

  auto& runs = pieces.runs;
  runs.reserve(sections.size() + 3);
  runs.push_back({0, pieces.file_header.data(), f.file_header_size, 0});
  if (!pieces.program_headers.empty()) {
    runs.push_back({h.phoff, pieces.program_headers.data(), pieces.program_headers.size(), 1});
  }
  // Index 0 is the null entry whatever it claims; a section holding fewer
  // bytes than it records leaves the rest of its space zero.
  for (size_t i = 1; i < sections.size(); ++i) {
    const Section& s = sections[i];
    const size_t held = static_cast<size_t>(std::min<uint64_t>(s.bytes().size(), s.header.size));
    if (s.header.type == kShtNull || s.header.type == kShtNobits || held == 0) continue;
    runs.push_back({s.header.offset, s.bytes().data(), held, runs.size()});
  }
  if (!pieces.section_headers.empty()) {
    runs.push_back(
        {h.shoff, pieces.section_headers.data(), pieces.section_headers.size(), runs.size()});
  }
  // The layout never overlaps two runs; sorting keeps equal offsets in the
  // order above, and a run behind the end (never expected) is still placed.
  const auto in_file_order = [](const Run& a, const Run& b) {
    return a.offset != b.offset ? a.offset < b.offset : a.sequence < b.sequence;
  };
  if (!std::is_sorted(runs.begin(), runs.end(), in_file_order)) {
    std::sort(runs.begin(), runs.end(), in_file_order);
  }
  return pieces;
}

}  // namespace

absl::Status Image::save(std::ostream& out) {
  if (!out.good()) return absl::FailedPreconditionError("the output stream has failed");
  if (absl::StatusOr<uint64_t> size = layOut(); !size.ok()) return size.status();
  return write(out);
}

absl::StatusOr<uint64_t> Image::layOut() { return engine::layOut(*this); }

absl::Status Image::write(std::ostream& out) const {
  const Pieces pieces = piecesOf(*this);
  std::streambuf* buffer = out.rdbuf();
  bool ok = buffer != nullptr && seek(*buffer, 0);
  uint64_t at = 0, end = 0;  // the put position and the end written
  for (const Run& run : pieces.runs) {
    if (!ok) break;
    if (run.offset >= end) {
      ok = (at == end || seek(*buffer, end)) && putZeros(*buffer, run.offset - end);
    } else {
      ok = seek(*buffer, run.offset);
    }
    ok = ok && put(*buffer, run.bytes, run.size);
    at = run.offset + run.size;
    end = std::max(end, at);
  }
  if (!ok) {
    out.setstate(std::ios_base::badbit);
    return absl::DataLossError("the output stream failed while writing");
  }
  return absl::OkStatus();
}

absl::Status Image::write(absl::Span<uint8_t> out) const {
  const Pieces pieces = piecesOf(*this);
  uint64_t end = 0;  // every byte before it is written
  for (const Run& run : pieces.runs) {
    if (run.offset > out.size() || run.size > out.size() - run.offset) {
      return absl::OutOfRangeError(absl::StrCat("the image needs more than the ", out.size(),
                                                " bytes of its layout"));
    }
    uint8_t* at = out.data() + run.offset;
    if (run.offset > end) std::memset(out.data() + end, 0, run.offset - end);
    std::memcpy(at, run.bytes, run.size);
    end = std::max<uint64_t>(end, run.offset + run.size);
  }
  if (end != out.size()) {
    return absl::InternalError(absl::StrCat("the written image ends at ", end,
                                            ", not where its layout does (", out.size(), ")"));
  }
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
