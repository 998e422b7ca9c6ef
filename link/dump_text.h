#ifndef QOV_LINK_DUMP_TEXT_H
#define QOV_LINK_DUMP_TEXT_H

#include <algorithm>
#include <cstddef>
#include <ios>
#include <sstream>
#include <streambuf>
#include <string>

namespace qov {

/// Keeps as many characters as a log record takes, and refuses the next one by throwing Full.
class RecordText : public std::streambuf {
 public:
  struct Full {};

  const std::string& text() const { return text_; }

 protected:
  std::streamsize xsputn(const char* from, std::streamsize count) override {
    const std::size_t room = kMost - text_.size();
    text_.append(from, std::min(static_cast<std::size_t>(count), room));
    if (static_cast<std::size_t>(count) > room) {
      throw Full();
    }
    return count;
  }
  int_type overflow(int_type c) override {
    const char character = traits_type::to_char_type(c);
    xsputn(&character, 1);
    return c;
  }

 private:
  static constexpr std::size_t kMost = 65535;

  std::string text_;
};

/// The text form of a package or a record, for a log line, as far as a record takes it. It costs a
/// digest: ask first whether the line will be written.
template <class Dumped>
std::string dumpOf(const Dumped& what) {
  RecordText record;
  std::ostringstream out;
  std::ios& stream = out;
  stream.rdbuf(&record);
  // What the record throws comes through, and ends the dump where it stands.
  stream.exceptions(std::ios::badbit);
  try {
    what.dump(out);
  } catch (const RecordText::Full&) {
  } catch (const std::ios_base::failure&) {
    // A derived class's dump has spoilt the stream, which takes nothing more.
  }
  return record.text();
}

}  // namespace qov

#endif
