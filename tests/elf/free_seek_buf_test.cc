// The string buffer that accepts positioning beyond its end.
#include "elf/free_seek_buf.h"

#include <functional>
#include <ostream>
#include <string>

#include "gtest/gtest.h"
#include "support/alloc_hook.h"

namespace zelk_elf {
namespace {

TEST(FreeSeekBufTest, Contract) {
  const std::string h(52, 'h'), s(40, 's'), zeros(148, '\0');
  const std::streampos refused(std::streamoff(-1));
  const struct {
    const char* rule;
    std::function<void(FreeSeekBuf&, std::ostream&)> steps;
    std::string content;  // empty: not checked
    bool stream_fails;
  } rows[] = {
      {"seekp(0) on an empty buffer adds nothing",
       [&](FreeSeekBuf&, std::ostream& o) { o.seekp(0) << h; }, h, false},
      {"a position beyond the end fills the gap with zeros",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(200) << s; }, h + zeros + s, false},
      {"a position inside overwrites and keeps the length",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(200) << s, o.seekp(52) << "oo"; },
       h + "oo" + zeros.substr(2) + s, false},
      {"a position exactly at the end appends nothing",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(52); }, h, false},
      {"a negative position fails and changes nothing",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(refused); }, h, true},
      {"relative positioning keeps the standard rules",
       [&](FreeSeekBuf&, std::ostream& o) { o << h, o.seekp(100, std::ios_base::beg); }, h, true},
      {"input-only positioning beyond the end fails, in and out extends",
       [&](FreeSeekBuf& b, std::ostream& o) {
         o << "xxxx";
         EXPECT_EQ(b.pubseekpos(10, std::ios_base::in), refused);
         EXPECT_EQ(b.pubseekpos(10), std::streampos(10));
       },
       std::string("xxxx") + std::string(6, '\0'), false},
      {"zeros that cannot be stored fail the positioning, not the process",
       [&](FreeSeekBuf& b, std::ostream& o) {
         o << "xxxx";
         testing::arm(1, testing::FailMode::kFromThenOn);
         const std::streampos got = b.pubseekpos(8 << 20);
         o.seekp(8 << 20);
         testing::disarm();
         EXPECT_EQ(got, refused);
       },
       "", true},
  };
  testing::warmUpFailurePath();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rule);
    FreeSeekBuf buffer;
    std::ostream out(&buffer);
    row.steps(buffer, out);
    EXPECT_EQ(out.fail(), row.stream_fails);
    // A failed growth may keep part of the zeros; the stream saw the failure.
    if (!row.content.empty()) {
      EXPECT_EQ(buffer.str(), row.content);
    }
  }
}

}  // namespace
}  // namespace zelk_elf
