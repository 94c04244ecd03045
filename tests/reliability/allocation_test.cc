// Every allocation of every operation fails in turn: no exception but the
// documented ones, the whole outcome or (where allowed) none, a usable object,
// no leak. And load, queries and save allocate in proportion to the input.
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "capi/handle.h"
#include "fuzz_checks.h"
#include "gtest/gtest.h"
#include "support/alloc_hook.h"
#include "support/elf_builder.h"
#include "support/test_support.h"
#include "support/wire.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace testing {
namespace {

using zelk_test::Append;
using zelk_test::U64;

const Bytes& richImage() {
  static const Bytes* image = [] {
    ELF elf = richELF();
    return new Bytes(saveBytes(elf));
  }();
  return *image;
}

struct State {
  ELF elf;
  absl::optional<ELF> loaded = absl::nullopt;
  absl::optional<ELF::Image> saved = absl::nullopt;
  std::vector<std::string> names = {};
};

// What an operation left: the object saved, what it loaded or saved, the names.
std::string outcome(State& s) {
  const auto text = [](const absl::optional<ELF::Image>& image) {
    return (image ? std::string(image->begin(), image->end()) : "-") + "|";
  };
  std::string out =
      text(s.elf.save()) + text(s.loaded ? s.loaded->save() : absl::nullopt) + text(s.saved);
  for (const std::string& name : s.names) out += name + ",";
  return out;
}

struct ClassOp {
  std::string name;
  std::function<ELF()> start;
  std::function<void(State&)> run;
  bool may_throw = false;       // std::bad_alloc, and only when an allocation failed
  bool all_or_nothing = false;  // after a failure: the whole outcome, or none
};

ELF load(const Bytes& bytes) { return std::move(*ELF::load(bytes)); }
ELF loadRich() { return load(richImage()); }

ClassOp setSection(const std::string& name, Bytes data) {
  return {"setSection " + name, loadRich, [=](State& s) { s.elf.setSection(name, data); }, true};
}

TEST(AllocFailureTest, ClassOperations) {
  const std::vector<absl::string_view> lines = {"a comment line long enough to allocate", "", "x"};
  const Bytes code(96, 0x3E);
  std::vector<ClassOp> ops = {
      {"ELF()", [] { return ELF(); }, [](State& s) { s.elf = ELF(); }, true, true},
      {"queries", loadRich, [&](State& s) { s.names = s.elf.getSectionNames(); }, true, true},
      setSection(".zelk.raw", Bytes(100, 0xAB)),
      setSection(".zelk.added", {1, 2, 3}),
      setSection(".text", Bytes(48, 0x5C)),
      setSection(".comment", bytesOf(std::string("first\0second\0\0last", 18))),
      setSection(".zelk.dbg.pmsize", {9, 9, 9, 9}),
      {"setText", loadRich, [&](State& s) { s.elf.setText(code, 32); }},
      {"setText on a new image", [] { return ELF(); }, [&](State& s) { s.elf.setText(code, 32); }},
      {"setCommentInfo", loadRich, [&](State& s) { s.elf.setCommentInfo(lines); }},
      {"save of fields set in memory", richELF, [](State& s) { s.saved = s.elf.save(); }, false,
       true},
  };
  // The rich image, and other producers' of both classes and byte orders.
  std::vector<Bytes> images = {richImage()};
  for (const std::string& path : listShared("corpus/real")) {
    images.push_back(readFile(path));
    if (images.back().size() > (64 << 10) || !ELF::load(images.back())) images.pop_back();
  }
  for (const Bytes& bytes : images) {
    const std::string size = " of " + std::to_string(bytes.size()) + " bytes";
    ops.push_back({"load" + size, [] { return ELF(); },
                   [=](State& s) { s.loaded = ELF::load(bytes); }, false, true});
    ops.push_back({"save" + size, [=] { return load(bytes); },
                   [](State& s) { s.saved = s.elf.save(); }, false, true});
  }
  for (const ClassOp& op : ops) {
    SCOPED_TRACE(op.name);
    State before{op.start()}, after{op.start()};
    op.run(after);
    const std::string nothing = outcome(before), whole = outcome(after);
    const uint64_t points = sweepAllocations(
        [&] { return std::make_unique<State>(State{op.start()}); },
        [&](std::unique_ptr<State>& s) {
          try {
            op.run(*s);
          } catch (const std::bad_alloc&) {
            return op.may_throw ? 0 : 1;
          } catch (...) {
            return 2;
          }
          return 0;
        },
        [&](std::unique_ptr<State>& s, int thrown, bool failed) {
          EXPECT_EQ(thrown, 0) << "an exception escaped";
          expectViewsConsistent(s->elf);
          const std::string got = outcome(*s);
          EXPECT_TRUE(got == whole || (failed && (!op.all_or_nothing || got == nothing)));
          absl::optional<ELF> again = ELF::load(*s->elf.save());  // still usable
          ASSERT_TRUE(again.has_value());
          EXPECT_TRUE(sameDebugInfo(*again, s->elf));
        });
    EXPECT_TRUE(points > 0 || !newHooked()) << "never allocated";
    if (HasFailure()) return;
  }
}

// What a C call gave: its empty result, its full result, or something else.
enum Result { kEmpty, kFull, kOther, kThrew };
using Call = std::function<Result(zelkELFHandle)>;
using Owned = std::unique_ptr<zelkELFObject, void (*)(zelkELFHandle)>;

Result is(bool empty, bool full) { return empty ? kEmpty : full ? kFull : kOther; }

// The array queries: each record is an array pointer and a count.
template <typename Record>
Call arrayQuery(Record (*get)(zelkELFHandle), void (*release)(Record), size_t full) {
  return [=](zelkELFHandle h) {
    const Record r = get(h);
    release(r);
    return is(*reinterpret_cast<void* const*>(&r) == nullptr && r.count == 0, r.count == full);
  };
}

TEST(AllocFailureTest, EveryCEntryPoint) {
  const Bytes& rich = richImage();
  const std::pair<const char*, Call> calls[] = {
      {"zelkELFLoad",
       [&](zelkELFHandle) {
         zelkELFHandle h = zelkELFLoad(rich.data(), rich.size());
         zelkELFFree(h);
         return is(h == nullptr, true);
       }},
      {"zelkELFSetSection",
       [&](zelkELFHandle h) {
         zelkELFSetSection(h, ".zelk.new", rich.data(), 3);
         return is(zelkELFGetSectionSize(h, ".zelk.new") == 0, true);
       }},
      {"zelkELFGetSpillInfo", arrayQuery(zelkELFGetSpillInfo, zelkELFFreeSpillInfo, 1)},
      {"zelkELFGetSWPInfo", arrayQuery(zelkELFGetSWPInfo, zelkELFFreeSWPInfo, 1)},
      {"zelkELFGetCFGInfo", arrayQuery(zelkELFGetCFGInfo, zelkELFFreeCFGInfo, 1)},
      {"zelkELFGetSrcNameList", arrayQuery(zelkELFGetSrcNameList, zelkELFFreeSrcList, 2)},
      {"zelkELFGetSrcList",
       arrayQuery(+[](zelkELFHandle h) { return zelkELFGetSrcList(h, "main.zc"); },
                  zelkELFFreeSrcList, 1)},
      {"zelkELFSave",
       [&](zelkELFHandle h) {
         const zelkELFBin r = zelkELFSave(h);
         zelkELFFreeBin(r);
         return is(r.data == nullptr && r.size == 0, r.size == rich.size());
       }},
  };
  for (const auto& call : calls) {
    SCOPED_TRACE(call.first);
    sweepAllocations(
        [&] { return Owned(zelkELFLoad(rich.data(), rich.size()), zelkELFFree); },
        [&](auto& h) {
          try {
            return call.second(h.get());
          } catch (...) {
            return kThrew;
          }
        },
        [&](auto& h, Result result, bool failed) {
          EXPECT_EQ(result, failed ? kEmpty : kFull);
          const zelkELFBin bin = zelkELFSave(h.get());  // the handle still works
          EXPECT_NE(bin.data, nullptr);
          zelkELFFreeBin(bin);
        });
    if (HasFailure()) return;
  }
}

// Bytes each operation may allocate per byte of input, and a constant.
constexpr uint64_t kPerInputByte = 8;
constexpr uint64_t kConstant = uint64_t{1} << 20;
// Each ".comment" line is a 16-byte view: the public data model's one cost
// beyond the input's proportion.
constexpr uint64_t kPerCommentLine = 16;

// A 32-bit image: the null entry, the name table, `count` copies of `section`.
ElfBuilder image(size_t count = 0, engine::SectionHeader section = {}) {
  ElfBuilder b(engine::kClass32);
  b.body = bytesOf(std::string("\0.shstrtab\0.s\0", 14));
  b.sections = {{}, {1, engine::kShtStrtab, 0, 0, 0x200, 14, 0, 0, 1, 0}};
  b.sections.resize(2 + count, section);
  b.h.shstrndx = 1;
  return b;
}

// A section `name` holding `payload`.
Bytes withPayload(const std::string& name, const Bytes& payload) {
  ElfBuilder b = image();
  b.body.insert(b.body.end(), name.begin(), name.end() + 1);
  b.sections.push_back(
      {14, engine::kShtProgbits, 0, 0, 0x200 + b.body.size(), payload.size(), 0, 0, 1, 0});
  b.sections[1].size = b.body.size();
  b.body.insert(b.body.end(), payload.begin(), payload.end());
  return b.build();
}

// `count` segments over `count` 16-byte sections; segment i spans the first
// i + 1 of them, or all of them.
Bytes segmentsOverSections(uint32_t count, bool nested) {
  ElfBuilder b = image(count, {11, engine::kShtNobits, engine::kShfAlloc, 0, 0, 16, 0, 0, 1, 0});
  for (uint32_t k = 0; k < count; ++k) {
    b.sections[2 + k].addr = 16 * (k + 1);
    b.segments.push_back(
        {engine::kPtLoad, engine::kPfR, 0, 16, 16, 0, 16 * (nested ? k + 1 : count), 0});
  }
  return b.build();
}

TEST(BoundedMemoryTest, LoadQueriesAndSaveStayInProportion) {
  // Entries with distinct keys of one byte are the densest maps.
  Bytes sources = U64(255), symbols = U64(1 << 20);
  for (uint8_t k = 0; k < 255; ++k) Append(sources, {U64(1), {k}, U64(4096), Bytes(32768)});
  for (uint32_t k = 0; k < (1u << 20); ++k) {
    Append(symbols, {U64(3), {uint8_t(k), uint8_t(k >> 8), uint8_t(k >> 16), 0, 0, 0, 0, 0}});
  }
  const struct {
    const char* image;
    Bytes bytes;
    size_t comment_lines;
  } rows[] = {
      {"4096 nested segments", segmentsOverSections(4096, true), 0},
      {"4096 segments each over all 4096 sections", segmentsOverSections(4096, false), 0},
      {"65535 sections sharing their bytes",
       image(0xFFFD, {11, engine::kShtProgbits, 0, 0, 0x200, 14, 0, 0, 1, 0}).build(), 0},
      {"4M SWP locations", withPayload(".zelk.dbg.swp", Bytes(16 << 20, 1)), 0},
      {"1M empty spill locations", withPayload(".zelk.dbg.spill", Bytes(14 << 20, 0)), 0},
      {"255 sources of 4096 empty strings each", withPayload(".zelk.dbg.src", sources), 0},
      {"1M symbols", withPayload(".zelk.dbg.sym", symbols), 0},
      {"a .comment of 1M empty lines", withPayload(".comment", Bytes(1 << 20, 0)), (1 << 20) + 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.image);
    const uint64_t bound =
        kPerInputByte * row.bytes.size() + kConstant + kPerCommentLine * row.comment_lines;
    uint64_t before = bytesAllocated();
    absl::optional<ELF> elf = ELF::load(row.bytes);
    EXPECT_LE(bytesAllocated() - before, bound) << "load";
    ASSERT_TRUE(elf.has_value());
    before = bytesAllocated();
    zelk_fuzz::queryEverything(capi::toHandle(&*elf));
    EXPECT_LE(bytesAllocated() - before, bound) << "queries";
    before = bytesAllocated();
    EXPECT_TRUE(elf->save().has_value());
    EXPECT_LE(bytesAllocated() - before, bound) << "save";
  }
}

// Sections added one by one: the section table and the name table grow by a
// factor, not by one entry, so what is allocated follows what is added.
TEST(BoundedMemoryTest, AddingSectionsOneByOneStaysInProportion) {
  constexpr uint64_t kSections = 4096, kPerSection = 1024;
  ELF elf;
  const uint64_t before = bytesAllocated();
  for (uint64_t i = 0; i < kSections; ++i) elf.setSection("s" + std::to_string(i), Bytes{1});
  EXPECT_LE(bytesAllocated() - before, kConstant + kPerSection * kSections);
  EXPECT_EQ(elf.getSectionNames().size(), kSections + 2);
}

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
