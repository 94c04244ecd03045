// Every allocation of every class operation fails in turn: the operation
// must give its documented failure outcome, leak nothing, and leave the
// object usable with its views on live bytes.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "reliability/alloc_hook.h"
#include "reliability/alloc_sweep.h"
#include "reliability/checks.h"
#include "reliability/sample_images.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace testing {
namespace {

// What an operation that may throw did.
template <typename T>
struct Outcome {
  absl::optional<T> value;
  bool threw_bad_alloc = false;
  bool threw_other = false;
};

template <typename T, typename F>
Outcome<T> capture(F&& f) {
  Outcome<T> outcome;
  try {
    outcome.value.emplace(f());
  } catch (const std::bad_alloc&) {
    outcome.threw_bad_alloc = true;
  } catch (...) {
    outcome.threw_other = true;
  }
  return outcome;
}

// Void operations report a dummy value.
template <typename F>
Outcome<bool> captureVoid(F&& f) {
  return capture<bool>([&] {
    f();
    return true;
  });
}

class ClassAllocFailureTest : public ::testing::TestWithParam<FailMode> {
 protected:
  static void SetUpTestSuite() {
    image_ = new std::vector<uint8_t>(makeSampleImage(0));
    reference_ = new ELF(std::move(*ELF::load(*image_)));
  }
  static void TearDownTestSuite() {
    delete reference_;
    delete image_;
  }

  void SetUp() override {
    ASSERT_FALSE(image_->empty());
    // Warm up anything the runtime allocates once, on first use.
    ELF warm = std::move(*ELF::load(*image_));
    warm.setText(std::vector<uint8_t>(3, 1), 4);
    warm.setCommentInfo({"warm"});
    ASSERT_TRUE(warm.save().has_value());
  }

  // A fresh object loaded from the rich image, outside the sweep's failure.
  static ELF loadRich() { return std::move(*ELF::load(*image_)); }

  static const std::vector<uint8_t>& image() { return *image_; }
  static const ELF& reference() { return *reference_; }

  FailMode mode() const { return GetParam(); }

 private:
  static std::vector<uint8_t>* image_;
  static ELF* reference_;
};

std::vector<uint8_t>* ClassAllocFailureTest::image_ = nullptr;
ELF* ClassAllocFailureTest::reference_ = nullptr;

TEST_P(ClassAllocFailureTest, RichImageIsRich) {
  const ELF& elf = reference();
  ASSERT_TRUE(elf.dbgID && elf.spillInfo && elf.swpInfo && elf.cfgInfo &&
              elf.srcInfo && elf.symInfo && elf.pmSize && elf.verifyInfo &&
              elf.latencyInfo && elf.text && elf.commentInfo);
  EXPECT_FALSE(elf.spillInfo->locs.empty());
  EXPECT_FALSE(elf.srcInfo->empty());
  EXPECT_FALSE(elf.latencyInfo->locs.empty());
}

TEST_P(ClassAllocFailureTest, Construct) {
  const uint64_t points = sweepAllocations(
      mode(), [] { return 0; },
      [](int&) { return capture<ELF>([] { return ELF(); }); },
      [](int&, Outcome<ELF>& outcome, bool fired) {
        EXPECT_FALSE(outcome.threw_other);
        if (!fired) {
          ASSERT_TRUE(outcome.value.has_value());
          EXPECT_EQ(outcome.value->getSectionNames(),
                    (std::vector<std::string>{"", ".shstrtab"}));
        } else {
          EXPECT_TRUE(outcome.threw_bad_alloc);
        }
      });
  expectSwept(points);
}

TEST_P(ClassAllocFailureTest, Load) {
  const uint64_t points = sweepAllocations(
      mode(), [] { return 0; },
      [](int&) { return capture<absl::optional<ELF>>([] { return ELF::load(image()); }); },
      [](int&, Outcome<absl::optional<ELF>>& outcome, bool fired) {
        ASSERT_TRUE(outcome.value.has_value()) << "load threw";
        absl::optional<ELF>& loaded = *outcome.value;
        // A failure may only be absorbed if the result is still complete.
        if (fired && !loaded.has_value()) return;
        ASSERT_TRUE(loaded.has_value());
        EXPECT_TRUE(sameDebugInfo(*loaded, reference()));
        EXPECT_EQ(loaded->getSectionNames(), reference().getSectionNames());
        EXPECT_EQ(*loaded->commentInfo, *reference().commentInfo);
        expectViewsConsistent(*loaded);
      });
  expectSwept(points);
}

// The const queries either answer correctly or let std::bad_alloc through.
TEST_P(ClassAllocFailureTest, Queries) {
  const ELF& elf = reference();
  const std::string long_name = ".zelk.dbg.verifyinfo";
  const std::string absent = ".zelk.no.such.section.anywhere";
  const std::vector<std::string> names = elf.getSectionNames();
  const absl::Span<const uint8_t> verify = elf.getSection(long_name);
  const size_t verify_size = elf.getSectionSize(long_name);
  const uint32_t text_addr = elf.getTextAddr();

  struct Answers {
    bool has = false;
    bool has_absent = true;
    absl::Span<const uint8_t> bytes;
    absl::Span<const uint8_t> absent_bytes;
    size_t size = 0;
    size_t absent_size = 1;
    uint32_t text_addr = 0;
    uint16_t machine = 0;
    std::vector<std::string> names;
  };
  const uint64_t points = sweepAllocations(
      mode(), [] { return 0; },
      [&](int&) {
        return capture<Answers>([&] {
          Answers a;
          a.has = elf.hasSection(long_name);
          a.has_absent = elf.hasSection(absent);
          a.bytes = elf.getSection(long_name);
          a.absent_bytes = elf.getSection(absent);
          a.size = elf.getSectionSize(long_name);
          a.absent_size = elf.getSectionSize(absent);
          a.text_addr = elf.getTextAddr();
          a.machine = elf.getMachine();
          a.names = elf.getSectionNames();
          return a;
        });
      },
      [&](int&, Outcome<Answers>& outcome, bool fired) {
        EXPECT_FALSE(outcome.threw_other);
        if (outcome.threw_bad_alloc) {
          EXPECT_TRUE(fired);
          return;
        }
        ASSERT_TRUE(outcome.value.has_value());
        const Answers& a = *outcome.value;
        EXPECT_TRUE(a.has);
        EXPECT_FALSE(a.has_absent);
        EXPECT_EQ(a.bytes.data(), verify.data());
        EXPECT_EQ(a.bytes.size(), verify.size());
        EXPECT_EQ(a.absent_bytes.data(), nullptr);
        EXPECT_EQ(a.absent_bytes.size(), 0u);
        EXPECT_EQ(a.size, verify_size);
        EXPECT_EQ(a.absent_size, 0u);
        EXPECT_EQ(a.text_addr, text_addr);
        EXPECT_EQ(a.machine, 0x5A4B);
        EXPECT_EQ(a.names, names);
      });
  expectSwept(points);
  // The object is untouched by all of it.
  EXPECT_TRUE(sameDebugInfo(elf, reference()));
  expectViewsConsistent(elf);
}

// setSection either stores the bytes, leaves the section empty (its copy
// failed), or throws std::bad_alloc (creating the section or re-reading the
// comment lines failed), leaving the old bytes, no bytes or no section.
void sweepSetSection(FailMode mode, const std::string& name,
                     const std::vector<uint8_t>& data, const ELF& reference,
                     ELF (*fresh)()) {
  std::vector<uint8_t> old_bytes;
  bool existed = false;
  {
    const ELF before = fresh();
    existed = before.hasSection(name);
    const absl::Span<const uint8_t> old = before.getSection(name);
    old_bytes.assign(old.begin(), old.end());
  }
  const uint64_t points = sweepAllocations(
      mode, fresh,
      [&](ELF& elf) {
        return captureVoid([&] { elf.setSection(name, data); });
      },
      [&](ELF& elf, Outcome<bool>& outcome, bool fired) {
        EXPECT_FALSE(outcome.threw_other);
        EXPECT_TRUE(!outcome.threw_bad_alloc || fired);
        expectViewsConsistent(elf);
        const absl::Span<const uint8_t> now = elf.getSection(name);
        const bool stored = elf.hasSection(name) && sameBytes(now, data) &&
                            elf.getSectionSize(name) == data.size();
        if (!fired) {
          EXPECT_TRUE(stored);
        } else {
          const bool emptied = elf.hasSection(name) && now.empty() &&
                               elf.getSectionSize(name) == 0;
          const bool untouched = outcome.threw_bad_alloc &&
                                 elf.hasSection(name) == existed &&
                                 sameBytes(now, old_bytes);
          EXPECT_TRUE(stored || emptied || untouched)
              << "section " << name << " holds " << now.size() << " bytes";
        }
        // Raw section edits never touch the decoded debug information.
        EXPECT_TRUE(sameDebugInfo(elf, reference));
        expectSavesAndReloads(elf, reference);
      });
  expectSwept(points);
}

TEST_P(ClassAllocFailureTest, SetSectionExisting) {
  sweepSetSection(mode(), ".zelk.raw0", std::vector<uint8_t>(100, 0xAB),
                  reference(), &loadRich);
}

TEST_P(ClassAllocFailureTest, SetSectionNew) {
  sweepSetSection(mode(), ".zelk.added.by.the.sweep", {1, 2, 3, 4, 5},
                  reference(), &loadRich);
}

TEST_P(ClassAllocFailureTest, SetSectionText) {
  sweepSetSection(mode(), ".text", std::vector<uint8_t>(48, 0x5C),
                  reference(), &loadRich);
}

TEST_P(ClassAllocFailureTest, SetSectionComment) {
  const std::string lines("first line\0second line\0\0last", 29);
  sweepSetSection(mode(), ".comment",
                  std::vector<uint8_t>(lines.begin(), lines.end()),
                  reference(), &loadRich);
}

TEST_P(ClassAllocFailureTest, SetSectionDebug) {
  sweepSetSection(mode(), ".zelk.dbg.pmsize", {9, 9, 9, 9}, reference(),
                  &loadRich);
}

// setText never throws; after a failure `text` is absent or views the bytes
// ".text" holds now.
void sweepSetText(FailMode mode, const ELF& reference, ELF (*fresh)(),
                  bool debug_info_present) {
  const std::vector<uint8_t> code(96, 0x3E);
  const uint64_t points = sweepAllocations(
      mode, fresh,
      [&](ELF& elf) { return captureVoid([&] { elf.setText(code, 32); }); },
      [&](ELF& elf, Outcome<bool>& outcome, bool fired) {
        EXPECT_TRUE(outcome.value.has_value()) << "setText threw";
        expectViewsConsistent(elf);
        if (!fired) {
          ASSERT_TRUE(elf.text.has_value());
          EXPECT_TRUE(sameBytes(*elf.text, code));
        }
        if (debug_info_present) {
          EXPECT_TRUE(sameDebugInfo(elf, reference));
          expectSavesAndReloads(elf, reference);
        } else {
          expectSavesAndReloads(elf, ELF());
        }
      });
  expectSwept(points);
}

ELF newELF() { return ELF(); }

TEST_P(ClassAllocFailureTest, SetTextOnLoaded) {
  sweepSetText(mode(), reference(), &loadRich, true);
}

TEST_P(ClassAllocFailureTest, SetTextOnNew) {
  sweepSetText(mode(), reference(), &newELF, false);
}

// setCommentInfo never throws; after a failure `commentInfo` is absent or
// holds the lines ".comment" holds now.
void sweepSetCommentInfo(FailMode mode, const ELF& reference, ELF (*fresh)(),
                         bool debug_info_present) {
  const std::vector<std::string> storage = {
      "a comment line long enough to allocate", "", "x", "last one"};
  const std::vector<absl::string_view> lines(storage.begin(), storage.end());
  const std::vector<absl::string_view> expected = {
      storage[0], storage[2], storage[3], ""};
  const uint64_t points = sweepAllocations(
      mode, fresh,
      [&](ELF& elf) {
        return captureVoid([&] { elf.setCommentInfo(lines); });
      },
      [&](ELF& elf, Outcome<bool>& outcome, bool fired) {
        EXPECT_TRUE(outcome.value.has_value()) << "setCommentInfo threw";
        expectViewsConsistent(elf);
        if (!fired) {
          ASSERT_TRUE(elf.commentInfo.has_value());
          EXPECT_EQ(*elf.commentInfo, expected);
        }
        if (debug_info_present) {
          EXPECT_TRUE(sameDebugInfo(elf, reference));
          expectSavesAndReloads(elf, reference);
        } else {
          expectSavesAndReloads(elf, ELF());
        }
      });
  expectSwept(points);
}

TEST_P(ClassAllocFailureTest, SetCommentInfoOnLoaded) {
  sweepSetCommentInfo(mode(), reference(), &loadRich, true);
}

TEST_P(ClassAllocFailureTest, SetCommentInfoOnNew) {
  sweepSetCommentInfo(mode(), reference(), &newELF, false);
}

// save never throws and gives nothing when an allocation failed; the object
// saves again afterwards.
void sweepSave(FailMode mode, const ELF& reference, ELF (*fresh)()) {
  const uint64_t points = sweepAllocations(
      mode, fresh,
      [&](ELF& elf) {
        return capture<absl::optional<ELF::Image>>([&] { return elf.save(); });
      },
      [&](ELF& elf, Outcome<absl::optional<ELF::Image>>& outcome, bool fired) {
        ASSERT_TRUE(outcome.value.has_value()) << "save threw";
        absl::optional<ELF::Image>& saved = *outcome.value;
        // A failure may only be absorbed if the image is still complete:
        // a damaged image must never be handed out.
        if (!fired) {
          EXPECT_TRUE(saved.has_value());
        }
        if (saved.has_value()) {
          absl::optional<ELF> reloaded = ELF::load(
              absl::MakeConstSpan(saved->data(), saved->size()));
          ASSERT_TRUE(reloaded.has_value()) << "saved image does not load";
          EXPECT_TRUE(sameDebugInfo(*reloaded, reference))
              << "saved image lost debug information";
        }
        EXPECT_TRUE(sameDebugInfo(elf, reference));
        expectSavesAndReloads(elf, reference);
      });
  expectSwept(points);
}

TEST_P(ClassAllocFailureTest, SaveLoaded) {
  sweepSave(mode(), reference(), &loadRich);
}

// Fields set in memory, so saving has to create all nine debug sections.
TEST_P(ClassAllocFailureTest, SaveBuiltInMemory) {
  sweepSave(mode(), reference(), [] { return makeSampleELF(0); });
}

// Images of other producers (both classes, both byte orders, segments of
// every kind), small enough to sweep quickly.
std::vector<std::vector<uint8_t>> foreignImages() {
  constexpr uintmax_t kMaxBytes = 128 * 1024;
  const std::filesystem::path folder =
      std::filesystem::path(ZELK_ELF_SHARED_DIR) / "corpus" / "real";
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file() && entry.file_size() <= kMaxBytes) {
      paths.push_back(entry.path());
    }
  }
  std::sort(paths.begin(), paths.end());
  std::vector<std::vector<uint8_t>> images;
  for (const auto& path : paths) {
    std::ifstream in(path, std::ios::binary);
    images.emplace_back(std::istreambuf_iterator<char>(in),
                        std::istreambuf_iterator<char>());
  }
  return images;
}

TEST_P(ClassAllocFailureTest, ForeignImagesLoadAndSave) {
  const std::vector<std::vector<uint8_t>> images = foreignImages();
  ASSERT_GT(images.size(), 10u);
  size_t saved_images = 0;
  for (size_t i = 0; i < images.size(); ++i) {
    SCOPED_TRACE(::testing::Message() << "foreign image " << i);
    const std::vector<uint8_t>& bytes = images[i];
    absl::optional<ELF> plain = ELF::load(bytes);
    if (!plain.has_value()) continue;
    const std::vector<std::string> names = plain->getSectionNames();

    sweepAllocations(
        mode(), [] { return 0; },
        [&](int&) { return capture<absl::optional<ELF>>([&] { return ELF::load(bytes); }); },
        [&](int&, Outcome<absl::optional<ELF>>& outcome, bool fired) {
          ASSERT_TRUE(outcome.value.has_value()) << "load threw";
          const absl::optional<ELF>& loaded = *outcome.value;
          if (fired && !loaded.has_value()) return;
          ASSERT_TRUE(loaded.has_value());
          EXPECT_EQ(loaded->getSectionNames(), names);
          expectViewsConsistent(*loaded);
        });

    // Some layouts cannot be saved at all; those only load.
    if (!plain->save().has_value()) continue;
    ++saved_images;
    sweepAllocations(
        mode(), [&] { return std::move(*ELF::load(bytes)); },
        [&](ELF& elf) {
          return capture<absl::optional<ELF::Image>>([&] { return elf.save(); });
        },
        [&](ELF& elf, Outcome<absl::optional<ELF::Image>>& outcome, bool fired) {
          ASSERT_TRUE(outcome.value.has_value()) << "save threw";
          const absl::optional<ELF::Image>& saved = *outcome.value;
          if (!fired) {
            EXPECT_TRUE(saved.has_value());
          }
          if (saved.has_value()) {
            absl::optional<ELF> again =
                ELF::load(absl::MakeConstSpan(saved->data(), saved->size()));
            ASSERT_TRUE(again.has_value()) << "saved image does not load";
            EXPECT_EQ(again->getSectionNames(), names);
          }
          absl::optional<ELF::Image> retry = elf.save();
          ASSERT_TRUE(retry.has_value()) << "save failed after the failure";
          expectViewsConsistent(elf);
        });
    if (HasFailure()) return;
  }
  EXPECT_GT(saved_images, 10u);
}

INSTANTIATE_TEST_SUITE_P(Modes, ClassAllocFailureTest, allFailModes(), failModeName);

}  // namespace
}  // namespace testing
}  // namespace zelk_elf
