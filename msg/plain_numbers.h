#ifndef MSG_PLAIN_NUMBERS_H
#define MSG_PLAIN_NUMBERS_H

#include <ios>
#include <locale>
#include <ostream>

namespace qov {

/// Lets numbers and texts be written into a stream as logs have them as long as it lives: in
/// decimal, unpadded, without signs, prefixes or a locale's separators that nobody asked for. The
/// stream gets its locale and flags back, but stays decimal.
///
/// Thread: as the stream.
/// Owns:   nothing.
/// Errors: none.
class PlainNumbers {
 public:
  explicit PlainNumbers(std::ostream& out)
      : out_(out),
        locale_(out.imbue(std::locale::classic())),
        flags_(out.flags(std::ios_base::dec)) {
    out.width(0);
  }
  ~PlainNumbers() {
    out_.imbue(locale_);
    out_.flags((flags_ & ~std::ios_base::basefield) | std::ios_base::dec);
  }
  PlainNumbers(const PlainNumbers&) = delete;
  PlainNumbers& operator=(const PlainNumbers&) = delete;

 private:
  std::ostream& out_;
  const std::locale locale_;
  const std::ios_base::fmtflags flags_;
};

}  // namespace qov

#endif
