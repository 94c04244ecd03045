// Creating images and editing their sections and segments.
#include "engine/image.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "absl/strings/str_cat.h"

namespace zelk_elf {
namespace engine {
namespace {

// A string table whose recorded size runs past the bytes it holds (loaded
// from a truncated image) gets its missing part as zeros before names are
// appended; beyond this many missing bytes the table counts as unusable.
constexpr uint64_t kMaxStringTableFill = uint64_t{1} << 24;

}  // namespace

absl::Status Section::setData(const uint8_t* data, size_t size) {
  // SHT_NOBITS keeps what it held and records that count.
  if (header.type == kShtNobits) {
    header.size = bytes_.size();
    return absl::OkStatus();
  }
  if (data == nullptr || size == 0) {
    adopt(nullptr, 0, 0);
    return absl::OkStatus();
  }
  std::unique_ptr<uint8_t[]> fresh;
  try {
    fresh = std::make_unique<uint8_t[]>(size);
  } catch (const std::bad_alloc&) {
    adopt(nullptr, 0, 0);
    return absl::ResourceExhaustedError(absl::StrCat("no memory for ", size, " bytes"));
  }
  std::memcpy(fresh.get(), data, size);
  adopt(std::move(fresh), size, size);
  return absl::OkStatus();
}

void Section::adopt(std::unique_ptr<uint8_t[]> own, size_t size, size_t capacity) noexcept {
  own_ = std::move(own);
  capacity_ = capacity;
  bytes_ = absl::MakeConstSpan(own_.get(), size);
  header.size = size;
}

Image::Image(uint8_t elf_class, uint8_t encoding) {
  header_.ident = {0x7F, 'E', 'L', 'F', elf_class, encoding, 1};
  header_.version = 1;
  const RecordFormat& f = format();
  header_.ehsize = static_cast<uint16_t>(f.file_header_size);
  header_.phentsize = static_cast<uint16_t>(f.segment_header_size);
  header_.shentsize = static_cast<uint16_t>(f.section_header_size);
  header_.shstrndx = 1;
  sections_.emplace_back();
  // The string table is added like any other section while the header
  // already names index 1, so its own name is its first string.
  Section& names = addSection(".shstrtab");
  names.header.type = kShtStrtab;
  names.header.addralign = 1;
}

Section* Image::findSection(absl::string_view name) {
  if (sections_.size() <= kIndexedFrom) {
    for (Section& s : sections_) {
      if (s.name == name) return &s;
    }
    return nullptr;
  }
  if (!indexed_) {
    NameIndex index;
    index.reserve(sections_.size());
    for (size_t i = 0; i < sections_.size(); ++i) index.try_emplace(sections_[i].name, i);
    name_index_ = std::move(index);
    indexed_ = true;
  }
  const auto found = name_index_.find(name);
  return found == name_index_.end() ? nullptr : &sections_[found->second];
}

const Section* Image::findSection(absl::string_view name) const {
  return const_cast<Image*>(this)->findSection(name);
}

Section& Image::addSection(absl::string_view name) {
  // Everything that can fail to allocate happens before the image changes,
  // so a failed add leaves no nameless section and no half-grown table.
  const size_t index = sections_.size();
  std::forward_list<std::string> stored_name;
  stored_name.emplace_front(name);
  Section added;
  added.name = stored_name.front();
  // Room for this one and, when full, as many again.
  if (sections_.size() == sections_.capacity()) sections_.reserve(std::max<size_t>(8, 2 * index));
  if (indexed_) name_index_.reserve(index + 1);

  // The name goes to the table the header names, which may be the section
  // being added. Without a usable table the name offset stays 0.
  const size_t table_index = header_.shstrndx;
  Section* table = nullptr;
  if (table_index != 0 && table_index < index) {
    table = &sections_[table_index];
  } else if (table_index != 0 && table_index == index) {
    table = &added;
  }
  std::unique_ptr<uint8_t[]> grown;
  size_t grown_size = 0, grown_capacity = 0;
  bool in_place = false;  // the name fits the table's own spare room
  if (table != nullptr) {
    const absl::string_view written = name.substr(0, name.find('\0'));
    const uint64_t start = table->header.size;
    const uint64_t lead = start == 0 ? 1 : 0;  // an empty table opens with NUL
    const uint64_t held = table->bytes_.size();
    // The offset and the name after it must fit the 32-bit name field; a
    // 64-bit table's size is not summed, as it may wrap.
    const uint64_t appended = lead + written.size() + 1;
    if (start <= 0xFFFFFFFFu && appended <= 0xFFFFFFFFu - start) {
      added.header.name = static_cast<uint32_t>(start + lead);
      // A NOBITS table holds nothing, but the offset is still handed out.
      // A table far shorter than it claims is not padded out without bound.
      if (table->header.type != kShtNobits &&
          !(start > held && start - held > kMaxStringTableFill)) {
        grown_size = static_cast<size_t>(start + lead) + written.size() + 1;
        in_place = table->own_ != nullptr && table->bytes_.data() == table->own_.get() &&
                   held == start && grown_size <= table->capacity_;
        if (!in_place) {
          // Whole tables grow by half again; one filled out with zeros
          // (cut short in its input) gets just what it needs.
          grown_capacity = held == start ? grown_size + grown_size / 2 : grown_size;
          grown = std::make_unique<uint8_t[]>(grown_capacity);  // zero-filled
          const size_t kept = static_cast<size_t>(std::min(held, start));
          if (kept != 0) std::memcpy(grown.get(), table->bytes_.data(), kept);
          std::memcpy(grown.get() + start + lead, written.data(), written.size());
        }
      } else if (table->header.type != kShtNobits) {
        added.header.name = 0;
      }
    }
  }

  // Commit: none of this allocates.
  added_names_.splice_after(added_names_.before_begin(), stored_name);
  sections_.push_back(std::move(added));
  if (indexed_) name_index_.try_emplace(sections_.back().name, index);
  if (grown) {
    Section& t = table_index == index ? sections_.back() : sections_[table_index];
    t.adopt(std::move(grown), grown_size, grown_capacity);
  } else if (in_place) {
    Section& t = sections_[table_index];
    // The name and its NUL end the grown table; the spare room they take
    // was never written, so any lead byte is zero already.
    const absl::string_view written = name.substr(0, name.find('\0'));
    std::memcpy(t.own_.get() + grown_size - 1 - written.size(), written.data(), written.size());
    t.own_[grown_size - 1] = 0;
    t.bytes_ = absl::MakeConstSpan(t.own_.get(), grown_size);
    t.header.size = grown_size;
  }
  return sections_.back();
}

Segment& Image::addSegment() {
  segments_.emplace_back();
  return segments_.back();
}

}  // namespace engine
}  // namespace zelk_elf
