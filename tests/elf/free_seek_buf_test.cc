// The string buffer that accepts positioning beyond its end.
#include "elf/free_seek_buf.h"

#include <ostream>
#include <string>

#include "gtest/gtest.h"

namespace zelk_elf {
namespace {

class FreeSeekBufTest : public ::testing::Test {
 protected:
  FreeSeekBufTest() : out_(&buffer_) {}

  void write(size_t count, char byte) { out_ << std::string(count, byte); }

  FreeSeekBuf buffer_;
  std::ostream out_;
};

TEST_F(FreeSeekBufTest, SeekBeyondEndFillsZerosAndOverwritesInside) {
  ASSERT_TRUE(out_.seekp(0));
  EXPECT_EQ(buffer_.str().size(), 0u);
  write(52, 'h');
  EXPECT_EQ(buffer_.str().size(), 52u);

  ASSERT_TRUE(out_.seekp(200));
  write(40, 's');
  std::string content = buffer_.str();
  ASSERT_EQ(content.size(), 240u);
  EXPECT_EQ(content.substr(0, 52), std::string(52, 'h'));
  EXPECT_EQ(content.substr(52, 148), std::string(148, '\0'));
  EXPECT_EQ(content.substr(200, 40), std::string(40, 's'));

  ASSERT_TRUE(out_.seekp(52));
  write(10, 'o');
  content = buffer_.str();
  ASSERT_EQ(content.size(), 240u);
  EXPECT_EQ(content.substr(52, 10), std::string(10, 'o'));
  EXPECT_EQ(content.substr(62, 138), std::string(138, '\0'));
  EXPECT_TRUE(out_.good());
}

TEST_F(FreeSeekBufTest, SeekToTheEndAddsNothing) {
  write(8, 'x');
  ASSERT_TRUE(out_.seekp(8));
  EXPECT_EQ(buffer_.str(), std::string(8, 'x'));
  EXPECT_EQ(out_.tellp(), 8);
}

TEST_F(FreeSeekBufTest, NegativePositionFails) {
  write(4, 'x');
  out_.seekp(std::streampos(std::streamoff(-1)));
  EXPECT_TRUE(out_.fail());
  EXPECT_EQ(buffer_.str(), std::string(4, 'x'));
}

TEST_F(FreeSeekBufTest, RelativePositioningKeepsStandardRules) {
  write(52, 'x');
  out_.seekp(100, std::ios_base::beg);
  EXPECT_TRUE(out_.fail());
  EXPECT_EQ(buffer_.str().size(), 52u);
}

TEST_F(FreeSeekBufTest, InputOnlyPositioningBeyondEndFails) {
  write(4, 'x');
  EXPECT_EQ(buffer_.pubseekpos(10, std::ios_base::in),
            std::streampos(std::streamoff(-1)));
  EXPECT_EQ(buffer_.str().size(), 4u);
  EXPECT_EQ(buffer_.pubseekpos(10), std::streampos(10));
  EXPECT_EQ(buffer_.str(), std::string("xxxx") + std::string(6, '\0'));
}

}  // namespace
}  // namespace zelk_elf
