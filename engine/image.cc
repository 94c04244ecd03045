// Construction, accessors and edits of images, sections and segments.
#include "engine/image.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "engine/image_state.h"

namespace zelk_elf {
namespace engine {
namespace {

// A string table whose recorded size runs past the bytes it holds (loaded
// from a truncated image) gets its missing part as zeros before names are
// appended; beyond this many missing bytes the table counts as unusable.
constexpr uint64_t kMaxStringTableFill = uint64_t{1} << 24;

}  // namespace

void Section::State::takeOwnership() {
  if (!input) return;
  const uint8_t* p = data();
  std::vector<uint8_t> copy(p, p + held);
  own = std::move(copy);
  input.reset();
  input_offset = 0;
}

std::unique_ptr<Section> ImageInternals::makeSection(size_t index, bool wide) {
  auto state = std::make_unique<Section::State>();
  state->index = index;
  state->wide = wide;
  return std::unique_ptr<Section>(new Section(std::move(state)));
}

std::unique_ptr<Segment> ImageInternals::makeSegment(size_t index, bool wide) {
  auto state = std::make_unique<Segment::State>();
  state->index = index;
  state->wide = wide;
  return std::unique_ptr<Segment>(new Segment(std::move(state)));
}

// ---------------------------------------------------------------------------
// Section

Section::Section(std::unique_ptr<State> state) : state_(std::move(state)) {}
Section::~Section() = default;

size_t Section::index() const { return state_->index; }
const std::string& Section::name() const { return state_->name; }
const SectionHeader& Section::header() const { return state_->header; }

uint32_t Section::type() const { return state_->header.type; }
void Section::setType(uint32_t type) { state_->header.type = type; }
uint64_t Section::flags() const { return state_->header.flags; }
void Section::setFlags(uint64_t flags) {
  state_->header.flags = state_->fit(flags);
}
uint64_t Section::address() const { return state_->header.addr; }
void Section::setAddress(uint64_t address) {
  state_->header.addr = state_->fit(address);
  state_->addr_init = true;
}
uint64_t Section::size() const { return state_->header.size; }
void Section::setSize(uint64_t size) { state_->header.size = state_->fit(size); }
uint64_t Section::addrAlign() const { return state_->header.addralign; }
void Section::setAddrAlign(uint64_t align) {
  state_->header.addralign = state_->fit(align);
}
uint64_t Section::entrySize() const { return state_->header.entsize; }
void Section::setEntrySize(uint64_t size) {
  state_->header.entsize = state_->fit(size);
}
uint32_t Section::link() const { return state_->header.link; }
void Section::setLink(uint32_t link) { state_->header.link = link; }
uint32_t Section::info() const { return state_->header.info; }
void Section::setInfo(uint32_t info) { state_->header.info = info; }
uint64_t Section::offset() const { return state_->header.offset; }
uint32_t Section::nameOffset() const { return state_->header.name; }

const uint8_t* Section::data() const { return state_->data(); }
size_t Section::dataSize() const { return state_->held; }

void Section::setData(const uint8_t* data, size_t size) {
  State& s = *state_;
  // SHT_NOBITS keeps what it held and records that count.
  if (s.header.type == kShtNobits) {
    s.header.size = s.fit(s.held);
    return;
  }
  std::vector<uint8_t> fresh;
  try {
    fresh.assign(data, data + size);
  } catch (const std::bad_alloc&) {
    fresh.clear();
    size = 0;
  } catch (const std::length_error&) {
    fresh.clear();
    size = 0;
  }
  s.input.reset();
  s.input_offset = 0;
  s.own = std::move(fresh);
  s.held = size;
  s.header.size = s.fit(size);
}

// ---------------------------------------------------------------------------
// Segment

Segment::Segment(std::unique_ptr<State> state) : state_(std::move(state)) {}
Segment::~Segment() = default;

size_t Segment::index() const { return state_->index; }
const SegmentHeader& Segment::header() const { return state_->header; }

uint32_t Segment::type() const { return state_->header.type; }
void Segment::setType(uint32_t type) { state_->header.type = type; }
uint32_t Segment::flags() const { return state_->header.flags; }
void Segment::setFlags(uint32_t flags) { state_->header.flags = flags; }
uint64_t Segment::virtualAddress() const { return state_->header.vaddr; }
void Segment::setVirtualAddress(uint64_t address) {
  state_->header.vaddr = state_->fit(address);
}
uint64_t Segment::physicalAddress() const { return state_->header.paddr; }
void Segment::setPhysicalAddress(uint64_t address) {
  state_->header.paddr = state_->fit(address);
}
uint64_t Segment::align() const { return state_->header.align; }
void Segment::setAlign(uint64_t align) {
  state_->header.align = state_->fit(align);
}
uint64_t Segment::fileSize() const { return state_->header.filesz; }
void Segment::setFileSize(uint64_t size) {
  state_->header.filesz = state_->fit(size);
}
uint64_t Segment::memorySize() const { return state_->header.memsz; }
void Segment::setMemorySize(uint64_t size) {
  state_->header.memsz = state_->fit(size);
}
uint64_t Segment::offset() const { return state_->header.offset; }

size_t Segment::sectionCount() const { return state_->sections.size(); }
uint16_t Segment::sectionIndexAt(size_t k) const {
  return k < state_->sections.size() ? state_->sections[k] : 0xFFFF;
}
const std::vector<uint16_t>& Segment::sectionIndexes() const {
  return state_->sections;
}
size_t Segment::addSectionIndex(uint16_t index, uint64_t align) {
  state_->sections.push_back(index);
  if (align > state_->header.align) state_->header.align = state_->fit(align);
  return state_->sections.size();
}

// ---------------------------------------------------------------------------
// Image

Image::Image() {
  create(kClass32, kDataLsb);
}
Image::~Image() = default;
Image::Image(Image&&) noexcept = default;
Image& Image::operator=(Image&&) noexcept = default;

void Image::create(uint8_t elf_class, uint8_t encoding) {
  auto fresh = std::make_unique<State>();
  FileHeader& h = fresh->header;
  h.ident = {0x7F, 'E', 'L', 'F', elf_class, encoding, 1};
  h.version = 1;
  const Codec codec = fresh->codec();
  h.ehsize = static_cast<uint16_t>(codec.headerSize());
  h.phentsize = static_cast<uint16_t>(codec.segmentHeaderSize());
  h.shentsize = static_cast<uint16_t>(codec.sectionHeaderSize());
  h.shstrndx = 1;
  fresh->sections.push_back(ImageInternals::makeSection(0, fresh->wide()));
  state_ = std::move(fresh);
  // The string table is added like any other section while the header
  // already names index 1, so its own name is its first string.
  Section& names = addSection(".shstrtab");
  names.setType(kShtStrtab);
  names.setAddrAlign(1);
}

bool Image::load(absl::Span<const uint8_t> bytes) {
  auto fresh = std::make_unique<State>();
  if (!ImageInternals::read(bytes, *fresh)) return false;
  state_ = std::move(fresh);
  return true;
}

bool Image::save(std::ostream& out) {
  if (!out.good()) return false;
  if (!ImageInternals::layout(*state_)) return false;
  return ImageInternals::write(*state_, out);
}

uint8_t Image::elfClass() const { return state_->header.ident[4]; }
uint8_t Image::encoding() const { return state_->header.ident[5]; }
const FileHeader& Image::header() const { return state_->header; }

uint16_t Image::type() const { return state_->header.type; }
void Image::setType(uint16_t type) { state_->header.type = type; }
uint16_t Image::machine() const { return state_->header.machine; }
void Image::setMachine(uint16_t machine) { state_->header.machine = machine; }
uint64_t Image::entry() const { return state_->header.entry; }
void Image::setEntry(uint64_t entry) {
  state_->header.entry = state_->codec().fit(entry);
}
uint32_t Image::flags() const { return state_->header.flags; }
void Image::setFlags(uint32_t flags) { state_->header.flags = flags; }

size_t Image::sectionCount() const { return state_->sections.size(); }
Section& Image::section(size_t index) { return *state_->sections.at(index); }
const Section& Image::section(size_t index) const {
  return *state_->sections.at(index);
}

Section* Image::findSection(absl::string_view name) {
  for (auto& s : state_->sections) {
    if (s->name() == name) return s.get();
  }
  return nullptr;
}
const Section* Image::findSection(absl::string_view name) const {
  return const_cast<Image*>(this)->findSection(name);
}

Section& Image::addSection(absl::string_view name) {
  // Everything that can fail to allocate happens before the image changes,
  // so a failed add leaves no nameless section and no half-grown table.
  State& st = *state_;
  const size_t index = st.sections.size();
  std::unique_ptr<Section> fresh = ImageInternals::makeSection(index, st.wide());
  Section::State& added = ImageInternals::of(*fresh);
  added.name = std::string(name);
  st.sections.reserve(index + 1);

  // The name goes to the table the header names, which may be the section
  // being added. Without a usable table the name offset stays 0.
  const size_t table_index = st.header.shstrndx;
  Section::State* table = nullptr;
  if (table_index != 0 && table_index < index) {
    table = &ImageInternals::of(*st.sections[table_index]);
  } else if (table_index != 0 && table_index == index) {
    table = &added;
  }
  std::vector<uint8_t> grown;
  bool replace_table_bytes = false;
  if (table != nullptr) {
    const absl::string_view stored = name.substr(0, name.find('\0'));
    const uint64_t start = table->header.size;
    const uint64_t lead = start == 0 ? 1 : 0;  // an empty table opens with NUL
    if (start + lead + stored.size() + 1 <= 0xFFFFFFFFu) {
      added.header.name = static_cast<uint32_t>(start + lead);
      // A NOBITS table holds nothing, but the offset is still handed out.
      // A table far shorter than it claims is not padded out without bound.
      if (table->header.type != kShtNobits &&
          !(start > table->held && start - table->held > kMaxStringTableFill)) {
        const size_t kept = static_cast<size_t>(
            std::min<uint64_t>(table->held, start));
        grown.reserve(static_cast<size_t>(start + lead) + stored.size() + 1);
        const uint8_t* old = table->data();
        grown.assign(old, old + kept);
        grown.resize(static_cast<size_t>(start), 0);
        if (lead) grown.push_back(0);
        grown.insert(grown.end(), stored.begin(), stored.end());
        grown.push_back(0);
        replace_table_bytes = true;
      } else if (table->header.type != kShtNobits) {
        added.header.name = 0;
      }
    }
  }

  // Commit: none of this allocates.
  st.sections.push_back(std::move(fresh));
  if (replace_table_bytes) {
    table->own.swap(grown);
    table->input.reset();
    table->input_offset = 0;
    table->held = table->own.size();
    table->header.size = table->held;
  }
  return *st.sections.back();
}

size_t Image::segmentCount() const { return state_->segments.size(); }
Segment& Image::segment(size_t index) { return *state_->segments.at(index); }
const Segment& Image::segment(size_t index) const {
  return *state_->segments.at(index);
}
Segment& Image::addSegment() {
  State& st = *state_;
  st.segments.push_back(
      ImageInternals::makeSegment(st.segments.size(), st.wide()));
  return *st.segments.back();
}

}  // namespace engine
}  // namespace zelk_elf
