// Every allocation (operator new and malloc) of every C function fails in
// turn: no exception may escape, the result must be the empty one, nothing
// may leak, and the handle must stay usable.
#include <algorithm>
#include <cstring>
#include <utility>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "reliability/alloc_hook.h"
#include "reliability/alloc_sweep.h"
#include "reliability/sample_images.h"
#include "zelk_elf/zelk_elf.h"

namespace zelk_elf {
namespace testing {
namespace {

// Owns a handle for the length of one sweep step.
class Handle {
 public:
  explicit Handle(zelkELFHandle handle = nullptr) : handle_(handle) {}
  Handle(Handle&& other) noexcept : handle_(other.handle_) {
    other.handle_ = nullptr;
  }
  Handle& operator=(Handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Handle() { zelkELFFree(handle_); }

  zelkELFHandle get() const { return handle_; }

 private:
  zelkELFHandle handle_;
};

// A C call's result, or the news that an exception escaped it.
template <typename T>
struct CallResult {
  T value{};
  bool escaped = false;
};

template <typename T, typename F>
CallResult<T> callC(F&& f) {
  CallResult<T> result;
  try {
    result.value = f();
  } catch (...) {
    result.escaped = true;
  }
  return result;
}

template <typename F>
CallResult<bool> callVoidC(F&& f) {
  return callC<bool>([&] {
    f();
    return true;
  });
}

// Everything the C queries tell about a handle, as plain values.
struct Snapshot {
  int has_id = 0;
  zelkELFDbgID id{};
  std::vector<uint32_t> spill;
  std::vector<uint32_t> swp;
  std::vector<uint32_t> cfg;
  std::vector<std::string> names;
  std::vector<std::string> main_strings;
  uint32_t pm_size = 0;
  std::string verify;

  bool operator==(const Snapshot& o) const {
    return has_id == o.has_id && id.kind == o.id.kind && id.id0 == o.id.id0 &&
           id.id1 == o.id.id1 && spill == o.spill && swp == o.swp &&
           cfg == o.cfg && names == o.names &&
           main_strings == o.main_strings && pm_size == o.pm_size &&
           verify == o.verify;
  }
};

Snapshot snapshot(zelkELFHandle h) {
  Snapshot s;
  s.has_id = zelkELFGetDbgID(h, &s.id);
  zelkELFSpillInfo spill = zelkELFGetSpillInfo(h);
  for (size_t i = 0; i < spill.count; ++i) {
    s.spill.push_back(spill.locs[i].addr);
    s.spill.push_back(spill.locs[i].index);
    s.spill.push_back(spill.locs[i].kind);
  }
  zelkELFFreeSpillInfo(spill);
  zelkELFSWPInfo swp = zelkELFGetSWPInfo(h);
  for (size_t i = 0; i < swp.count; ++i) s.swp.push_back(swp.locs[i].addr);
  zelkELFFreeSWPInfo(swp);
  zelkELFCFGInfo cfg = zelkELFGetCFGInfo(h);
  for (size_t i = 0; i < cfg.count; ++i) {
    const zelkELFCFGEdge& e = cfg.edges[i];
    s.cfg.insert(s.cfg.end(),
                 {e.first.start, e.first.end, e.second.start, e.second.end});
  }
  zelkELFFreeCFGInfo(cfg);
  zelkELFSrcList names = zelkELFGetSrcNameList(h);
  for (size_t i = 0; i < names.count; ++i) s.names.push_back(names.names[i]);
  zelkELFFreeSrcList(names);
  std::sort(s.names.begin(), s.names.end());
  zelkELFSrcList strings = zelkELFGetSrcList(h, "main.zc");
  for (size_t i = 0; i < strings.count; ++i) {
    s.main_strings.push_back(strings.names[i]);
  }
  zelkELFFreeSrcList(strings);
  s.pm_size = zelkELFGetPMSize(h);
  const char* verify = zelkELFGetVerifyInfo(h);
  if (verify != nullptr) s.verify = verify;
  return s;
}

// The rich image, and what the queries answer on it; built before any sweep.
const std::vector<uint8_t>& richImage() {
  static const std::vector<uint8_t>* image =
      new std::vector<uint8_t>(makeSampleImage(0));
  return *image;
}

Handle loadRich() {
  return Handle(zelkELFLoad(richImage().data(), richImage().size()));
}

const Snapshot& reference() {
  static const Snapshot* answers = [] {
    Handle h = loadRich();
    return new Snapshot(snapshot(h.get()));
  }();
  return *answers;
}

// The handle works as before: its queries answer as the reference's, it
// saves, and the saved image loads with the same answers.
void expectUsable(zelkELFHandle h) {
  EXPECT_TRUE(snapshot(h) == reference());
  zelkELFBin bin = zelkELFSave(h);
  ASSERT_NE(bin.data, nullptr) << "save failed after the failure";
  Handle again(zelkELFLoad(bin.data, bin.size));
  zelkELFFreeBin(bin);
  ASSERT_NE(again.get(), nullptr);
  EXPECT_TRUE(snapshot(again.get()) == reference());
}

class CapiAllocFailureTest : public ::testing::TestWithParam<FailMode> {
 protected:
  void SetUp() override {
    ASSERT_FALSE(richImage().empty());
    reference();
    // Warm up anything the runtime allocates once, on first use.
    Handle warm = loadRich();
    ASSERT_NE(warm.get(), nullptr);
    zelkELFBin bin = zelkELFSave(warm.get());
    ASSERT_NE(bin.data, nullptr);
    zelkELFFreeBin(bin);
    shared_ = loadRich();
    ASSERT_NE(shared_.get(), nullptr);
  }

  void TearDown() override {
    // The queries never change the handle.
    EXPECT_TRUE(snapshot(shared_.get()) == reference());
  }

  // Sweeps one query on the shared handle. `query` returns a record, `empty`
  // tells whether it is the empty one, `full` checks a complete answer and
  // `release` frees the record.
  template <typename T, typename Query, typename Empty, typename Full,
            typename Release>
  uint64_t sweepQuery(Query query, Empty empty, Full full, Release release) {
    const zelkELFHandle h = shared_.get();
    return sweepAllocations(
        GetParam(), [] { return 0; },
        [&](int&) { return callC<T>([&] { return query(h); }); },
        [&](int&, CallResult<T>& result, bool fired) {
          ASSERT_FALSE(result.escaped) << "exception escaped";
          if (fired) {
            EXPECT_TRUE(empty(result.value)) << "no empty result";
          } else {
            full(result.value);
          }
          release(result.value);
        });
  }

  FailMode mode() const { return GetParam(); }

  Handle shared_;
};

TEST_P(CapiAllocFailureTest, ReferenceIsRich) {
  EXPECT_EQ(reference().has_id, 1);
  EXPECT_FALSE(reference().spill.empty());
  EXPECT_FALSE(reference().swp.empty());
  EXPECT_FALSE(reference().cfg.empty());
  EXPECT_EQ(reference().names.size(), 3u);
  EXPECT_FALSE(reference().main_strings.empty());
  EXPECT_NE(reference().pm_size, 0u);
  EXPECT_FALSE(reference().verify.empty());
}

TEST_P(CapiAllocFailureTest, Load) {
  const uint64_t points = sweepAllocations(
      mode(), [] { return 0; },
      [](int&) {
        return callC<zelkELFHandle>(
            [] { return zelkELFLoad(richImage().data(), richImage().size()); });
      },
      [](int&, CallResult<zelkELFHandle>& result, bool fired) {
        ASSERT_FALSE(result.escaped) << "exception escaped";
        Handle h(result.value);
        // A failure may only be absorbed if the result is still complete.
        if (fired && h.get() == nullptr) return;
        ASSERT_NE(h.get(), nullptr);
        expectUsable(h.get());
      });
  expectSwept(points);
}

TEST_P(CapiAllocFailureTest, GetSection) {
  const zelkELFSection expected =
      zelkELFGetSection(shared_.get(), ".zelk.dbg.verifyinfo");
  ASSERT_NE(expected.data, nullptr);
  for (const char* name : {".zelk.dbg.verifyinfo", ".text", ".absent.section.name.x"}) {
    const zelkELFSection want = zelkELFGetSection(shared_.get(), name);
    sweepQuery<zelkELFSection>(
        [&](zelkELFHandle h) { return zelkELFGetSection(h, name); },
        [](const zelkELFSection& s) { return s.data == nullptr && s.size == 0; },
        [&](const zelkELFSection& s) {
          EXPECT_EQ(s.data, want.data);
          EXPECT_EQ(s.size, want.size);
        },
        [](const zelkELFSection&) {});
  }
}

TEST_P(CapiAllocFailureTest, GetSectionSize) {
  for (const char* name : {".zelk.dbg.verifyinfo", ".text", ".absent.section.name.x"}) {
    const size_t want = zelkELFGetSectionSize(shared_.get(), name);
    sweepQuery<size_t>(
        [&](zelkELFHandle h) { return zelkELFGetSectionSize(h, name); },
        [](size_t size) { return size == 0; },
        [&](size_t size) { EXPECT_EQ(size, want); }, [](size_t) {});
  }
}

TEST_P(CapiAllocFailureTest, GetDbgIDPMSizeVerifyInfo) {
  // These read fields in place; they should not allocate at all.
  sweepQuery<int>(
      [](zelkELFHandle h) {
        zelkELFDbgID id{};
        return zelkELFGetDbgID(h, &id);
      },
      [](int filled) { return filled == 0; },
      [](int filled) { EXPECT_EQ(filled, 1); }, [](int) {});
  sweepQuery<uint32_t>(
      [](zelkELFHandle h) { return zelkELFGetPMSize(h); },
      [](uint32_t size) { return size == 0; },
      [](uint32_t size) { EXPECT_EQ(size, reference().pm_size); },
      [](uint32_t) {});
  sweepQuery<const char*>(
      [](zelkELFHandle h) { return zelkELFGetVerifyInfo(h); },
      [](const char* text) { return text == nullptr; },
      [](const char* text) {
        ASSERT_NE(text, nullptr);
        EXPECT_EQ(std::string(text), reference().verify);
      },
      [](const char*) {});
}

TEST_P(CapiAllocFailureTest, GetSpillInfo) {
  const uint64_t points = sweepQuery<zelkELFSpillInfo>(
      [](zelkELFHandle h) { return zelkELFGetSpillInfo(h); },
      [](const zelkELFSpillInfo& r) { return r.locs == nullptr && r.count == 0; },
      [](const zelkELFSpillInfo& r) {
        ASSERT_EQ(r.count * 3, reference().spill.size());
        for (size_t i = 0; i < r.count; ++i) {
          EXPECT_EQ(r.locs[i].addr, reference().spill[3 * i]);
          EXPECT_EQ(r.locs[i].reserved[0] | r.locs[i].reserved[1] |
                        r.locs[i].reserved[2],
                    0);
        }
      },
      [](const zelkELFSpillInfo& r) { zelkELFFreeSpillInfo(r); });
  expectSwept(points);
}

TEST_P(CapiAllocFailureTest, GetSWPInfo) {
  const uint64_t points = sweepQuery<zelkELFSWPInfo>(
      [](zelkELFHandle h) { return zelkELFGetSWPInfo(h); },
      [](const zelkELFSWPInfo& r) { return r.locs == nullptr && r.count == 0; },
      [](const zelkELFSWPInfo& r) {
        ASSERT_EQ(r.count, reference().swp.size());
        for (size_t i = 0; i < r.count; ++i) {
          EXPECT_EQ(r.locs[i].addr, reference().swp[i]);
        }
      },
      [](const zelkELFSWPInfo& r) { zelkELFFreeSWPInfo(r); });
  expectSwept(points);
}

TEST_P(CapiAllocFailureTest, GetCFGInfo) {
  const uint64_t points = sweepQuery<zelkELFCFGInfo>(
      [](zelkELFHandle h) { return zelkELFGetCFGInfo(h); },
      [](const zelkELFCFGInfo& r) { return r.edges == nullptr && r.count == 0; },
      [](const zelkELFCFGInfo& r) {
        ASSERT_EQ(r.count * 4, reference().cfg.size());
        for (size_t i = 0; i < r.count; ++i) {
          EXPECT_EQ(r.edges[i].first.start, reference().cfg[4 * i]);
          EXPECT_EQ(r.edges[i].second.end, reference().cfg[4 * i + 3]);
        }
      },
      [](const zelkELFCFGInfo& r) { zelkELFFreeCFGInfo(r); });
  expectSwept(points);
}

bool emptyList(const zelkELFSrcList& r) {
  return r.names == nullptr && r.count == 0;
}

std::vector<std::string> listStrings(const zelkELFSrcList& r) {
  std::vector<std::string> strings;
  for (size_t i = 0; i < r.count; ++i) strings.push_back(r.names[i]);
  return strings;
}

TEST_P(CapiAllocFailureTest, GetSrcList) {
  // A source name beyond the small-string buffer makes the key allocate.
  std::string long_name;
  for (const std::string& name : reference().names) {
    if (name.size() > 20) long_name = name;
  }
  ASSERT_FALSE(long_name.empty());
  const zelkELFHandle h = shared_.get();
  zelkELFSrcList want_list = zelkELFGetSrcList(h, long_name.c_str());
  const std::vector<std::string> want = listStrings(want_list);
  zelkELFFreeSrcList(want_list);

  uint64_t points = sweepQuery<zelkELFSrcList>(
      [](zelkELFHandle h) { return zelkELFGetSrcList(h, "main.zc"); },
      emptyList,
      [](const zelkELFSrcList& r) {
        EXPECT_EQ(listStrings(r), reference().main_strings);
      },
      [](const zelkELFSrcList& r) { zelkELFFreeSrcList(r); });
  points += sweepQuery<zelkELFSrcList>(
      [&](zelkELFHandle h) { return zelkELFGetSrcList(h, long_name.c_str()); },
      emptyList,
      [&](const zelkELFSrcList& r) { EXPECT_EQ(listStrings(r), want); },
      [](const zelkELFSrcList& r) { zelkELFFreeSrcList(r); });
  expectSwept(points);
}

TEST_P(CapiAllocFailureTest, GetSrcNameList) {
  const uint64_t points = sweepQuery<zelkELFSrcList>(
      [](zelkELFHandle h) { return zelkELFGetSrcNameList(h); }, emptyList,
      [](const zelkELFSrcList& r) {
        std::vector<std::string> names = listStrings(r);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, reference().names);
      },
      [](const zelkELFSrcList& r) { zelkELFFreeSrcList(r); });
  expectSwept(points);
}

// zelkELFSetSection on a fresh handle per step. After a failure the section
// holds the new bytes, no bytes, or (the section could not be created or
// changed) what it held before.
void sweepSetSection(FailMode mode, const char* name,
                     const std::vector<uint8_t>& data) {
  std::vector<uint8_t> old_bytes;
  {
    Handle before = loadRich();
    const zelkELFSection old = zelkELFGetSection(before.get(), name);
    if (old.data != nullptr) old_bytes.assign(old.data, old.data + old.size);
  }
  const uint64_t points = sweepAllocations(
      mode, [] { return loadRich(); },
      [&](Handle& h) {
        return callVoidC(
            [&] { zelkELFSetSection(h.get(), name, data.data(), data.size()); });
      },
      [&](Handle& h, CallResult<bool>& result, bool fired) {
        ASSERT_FALSE(result.escaped) << "exception escaped";
        const zelkELFSection now = zelkELFGetSection(h.get(), name);
        const size_t recorded = zelkELFGetSectionSize(h.get(), name);
        const std::vector<uint8_t> held =
            now.data == nullptr ? std::vector<uint8_t>()
                                : std::vector<uint8_t>(now.data, now.data + now.size);
        const bool stored = now.data != nullptr && held == data &&
                            recorded == data.size();
        if (!fired) {
          EXPECT_TRUE(stored);
        } else {
          const bool emptied = held.empty() && recorded == 0;
          const bool untouched = held == old_bytes;
          EXPECT_TRUE(stored || emptied || untouched)
              << name << " holds " << held.size() << " bytes";
        }
        expectUsable(h.get());
      });
  expectSwept(points);
}

TEST_P(CapiAllocFailureTest, SetSectionExisting) {
  sweepSetSection(mode(), ".zelk.raw1", std::vector<uint8_t>(77, 0x11));
}

TEST_P(CapiAllocFailureTest, SetSectionNew) {
  sweepSetSection(mode(), ".a.new.section.with.a.long.name",
                  std::vector<uint8_t>(5, 0x22));
}

TEST_P(CapiAllocFailureTest, SetSectionText) {
  sweepSetSection(mode(), ".text", std::vector<uint8_t>(40, 0x33));
}

TEST_P(CapiAllocFailureTest, SetSectionComment) {
  const std::string lines("one\0two\0", 8);
  sweepSetSection(mode(), ".comment",
                  std::vector<uint8_t>(lines.begin(), lines.end()));
}

TEST_P(CapiAllocFailureTest, Save) {
  const uint64_t points = sweepAllocations(
      mode(), [] { return loadRich(); },
      [](Handle& h) { return callC<zelkELFBin>([&] { return zelkELFSave(h.get()); }); },
      [](Handle& h, CallResult<zelkELFBin>& result, bool fired) {
        ASSERT_FALSE(result.escaped) << "exception escaped";
        const zelkELFBin bin = result.value;
        // A failure may only be absorbed if the image is still complete:
        // a damaged image must never be handed out.
        if (!fired) {
          EXPECT_NE(bin.data, nullptr);
        }
        if (bin.data == nullptr) {
          EXPECT_EQ(bin.size, 0u);
        } else {
          Handle again(zelkELFLoad(bin.data, bin.size));
          EXPECT_NE(again.get(), nullptr) << "saved image does not load";
          if (again.get() != nullptr) {
            EXPECT_TRUE(snapshot(again.get()) == reference())
                << "saved image lost debug information";
          }
        }
        zelkELFFreeBin(bin);
        expectUsable(h.get());
      });
  expectSwept(points);
}

TEST_P(CapiAllocFailureTest, FreeAndVersionNeverAllocate) {
  const zelkELFHandle h = zelkELFLoad(richImage().data(), richImage().size());
  ASSERT_NE(h, nullptr);
  arm(1, mode());
  zelkELFFree(h);
  uint32_t major = 0, minor = 0, patch = 0;
  const char* text = nullptr;
  zelkELFVersion(&major, &minor, &patch, &text);
  EXPECT_FALSE(disarm());
  EXPECT_EQ(major, 1u);
  EXPECT_STREQ(text, "unknown");
}

INSTANTIATE_TEST_SUITE_P(Modes, CapiAllocFailureTest, allFailModes(), failModeName);

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
