// Every allocation of every operation fails in turn, once and from then on.
// A class operation gives its documented outcome (ELF() and the queries may
// throw std::bad_alloc, the setters a consistent object, load and save
// nothing) and never another exception; the object stays usable with its
// views on its sections' bytes; nothing leaks. A C function lets no
// exception out and gives its empty result.
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "reliability/checks.h"
#include "support/alloc_hook.h"
#include "support/test_support.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace testing {
namespace {

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

// What an operation left: the object saved, what it loaded or saved, the
// names it listed.
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
      {"save", loadRich, [](State& s) { s.saved = s.elf.save(); }, false, true},
      {"save of fields set in memory", richELF, [](State& s) { s.saved = s.elf.save(); }, false,
       true},
      {"load", [] { return ELF(); }, [](State& s) { s.loaded = ELF::load(richImage()); }, false,
       true},
  };
  // Images of other producers: both classes and byte orders, every kind of
  // segment.
  for (const std::string& path : listShared("corpus/real")) {
    const Bytes bytes = readFile(path);
    if (bytes.size() > (64 << 10) || !ELF::load(bytes)) continue;
    ops.push_back({"load " + path, [] { return ELF(); },
                   [=](State& s) { s.loaded = ELF::load(bytes); }, false, true});
    ops.push_back({"save " + path, [=] { return load(bytes); },
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
      {"zelkELFGetSpillInfo", arrayQuery(zelkELFGetSpillInfo, zelkELFFreeSpillInfo, 2)},
      {"zelkELFGetSWPInfo", arrayQuery(zelkELFGetSWPInfo, zelkELFFreeSWPInfo, 2)},
      {"zelkELFGetCFGInfo", arrayQuery(zelkELFGetCFGInfo, zelkELFFreeCFGInfo, 1)},
      {"zelkELFGetSrcNameList", arrayQuery(zelkELFGetSrcNameList, zelkELFFreeSrcList, 2)},
      {"zelkELFGetSrcList", arrayQuery(
                                +[](zelkELFHandle h) { return zelkELFGetSrcList(h, "main.zc"); },
                                zelkELFFreeSrcList, 2)},
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
        [&] {
          return std::unique_ptr<zelkELFObject, void (*)(zelkELFHandle)>(
              zelkELFLoad(rich.data(), rich.size()), zelkELFFree);
        },
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

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
