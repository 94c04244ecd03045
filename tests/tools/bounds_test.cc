// Large images: every reading command writes as it goes, so its memory
// stays near the loaded image however large the output. Each run is bounded
// by an address-space limit far below what holding its output would take;
// none is timed, and each takes a second or two (the largest output, 280 MB
// of JSON, goes to /dev/null).
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tools/tool_runner.h"

namespace zelk_elf_test {
namespace {

void expectWithin(uint64_t limit, const std::vector<std::string>& args) {
  RunOptions options;
  options.discard_stdout = true;
  options.memory_limit = limit;
  ToolResult result = runTool(args, options);
  EXPECT_EQ(result.exit_code, 0)
      << args[0] << " " << args.back() << ": " << result.err;
}

// A new image whose section `name` holds `count` little-endian words made
// by `word(i)`.
template <typename Word>
std::string imageWithWords(const TempDir& dir, const std::string& name,
                           size_t count, Word word) {
  std::vector<uint8_t> payload;
  payload.reserve(4 * count);
  for (size_t i = 0; i < count; ++i) {
    uint32_t value = word(i);
    for (int k = 0; k < 4; ++k) payload.push_back(value >> (8 * k));
  }
  writeBytes(dir.file("payload"), payload);
  const std::string image = dir.file(name.substr(10) + ".elf");
  EXPECT_EQ(runTool({"edit", "--new", "-o", image, "--set-section",
                     name + "=@" + dir.file("payload")})
                .exit_code,
            0);
  return image;
}

constexpr uint64_t kMiB = uint64_t{1} << 20;

TEST(BoundsTest, OutputStreams) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP()
      << "AddressSanitizer reserves more address space than the limits";
#endif
  TempDir dir;
  // 2,048 segments that each list 2,047 sections: 143 KB in, 280 MB of
  // JSON out. The engine holds 8 MB of segment lists.
  const std::string wide = dir.file("wide.elf");
  writeBytes(wide, wideImage(2048, 2048));
  expectWithin(64 * kMiB, {"info", wide});
  expectWithin(64 * kMiB, {"info", wide, "--json"});
  // 4M SWP entries, 16 MiB in: 80 MB of text and 170 MB of JSON out.
  const std::string swp =
      imageWithWords(dir, ".zelk.dbg.swp", 4 * kMiB,
                     [](size_t i) { return static_cast<uint32_t>(4 * i); });
  expectWithin(160 * kMiB, {"debug", swp});
  expectWithin(160 * kMiB, {"debug", swp, "--json"});
  // 1M edges between 2M distinct blocks, 16 MiB in.
  const std::string cfg = imageWithWords(
      dir, ".zelk.dbg.cfg", 4 * kMiB,
      [](size_t i) { return static_cast<uint32_t>(4 * (i - i / 4)); });
  expectWithin(160 * kMiB, {"cfg", cfg, "--dot"});
}

}  // namespace
}  // namespace zelk_elf_test
