// A string buffer that lets a writer position beyond the end of what it has
// written, as image writers do when they place the section header table
// before the data in front of it exists. The gap is filled with zeros.
//
// ELF::save writes straight into the buffer it returns; this is the sink for
// writing an image through a stream, and a test holds the two ways to the
// same bytes. Private to the saving code: the class lives in an unnamed
// namespace, so each file including this header has its own copy.
#ifndef ZELK_ELF_ELF_FREE_SEEK_BUF_H_
#define ZELK_ELF_ELF_FREE_SEEK_BUF_H_

#include <algorithm>
#include <ios>
#include <sstream>
#include <streambuf>

namespace zelk_elf {
namespace {

class FreeSeekBuf : public std::basic_stringbuf<char> {
 public:
  FreeSeekBuf() = default;
  ~FreeSeekBuf() override = default;

 protected:
  // Never throws: a stream must see a failed positioning, not an exception,
  // when the zeros cannot be stored.
  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
    const off_type target = off_type(pos);
    // Refused before anything moves: finding the end below moves the write
    // position there.
    if (target < 0) return pos_type(off_type(-1));
    if ((which & std::ios_base::out) != 0) {
      // Relative positioning at the end reports the end of the written
      // content and leaves the write position there, ready to append.
      const off_type end =
          std::basic_stringbuf<char>::seekoff(0, std::ios_base::end,
                                              std::ios_base::out);
      if (end >= 0 && target > end) {
        try {
          appendZeros(target - end);
        } catch (...) {
          return pos_type(off_type(-1));
        }
      }
    }
    // If the zeros could not all be written, this positioning lies beyond
    // the end and fails like any other.
    return std::basic_stringbuf<char>::seekoff(target, std::ios_base::beg,
                                               which);
  }

 private:
  void appendZeros(off_type count) {
    static constexpr char kZeros[4096] = {};
    while (count > 0) {
      const std::streamsize chunk = static_cast<std::streamsize>(
          std::min<off_type>(count, off_type(sizeof(kZeros))));
      const std::streamsize written = sputn(kZeros, chunk);
      if (written != chunk) return;
      count -= chunk;
    }
  }
};

}  // namespace
}  // namespace zelk_elf

#endif  // ZELK_ELF_ELF_FREE_SEEK_BUF_H_
