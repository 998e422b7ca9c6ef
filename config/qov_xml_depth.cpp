#include "config/qov_xml_depth.h"

#include <strings.h>
#include <tinyxml.h>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace qov {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool isBlank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

/// TinyXML takes every byte from 127 on for a letter.
bool isLetter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 127 || std::isalpha(byte) != 0;
}

bool beginsName(char c) {
  return isLetter(c) || c == '_';
}

bool isInName(char c) {
  return beginsName(c) || std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '-' ||
         c == '.' || c == ':';
}

/// What TinyXML takes for the length of the UTF-8 character that begins with `c`, whatever follows.
std::size_t lengthInUtf8(char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (byte < 0xC2 || byte > 0xF4) {
    return 1;
  }
  return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

/// Whether a declaration that names `encoding` makes the document UTF-8, which no name does, too.
bool namesUtf8(const char* encoding) {
  return *encoding == '\0' || ::strncasecmp(encoding, "UTF-8", 5) == 0 ||
         ::strncasecmp(encoding, "UTF8", 4) == 0;
}

/// Walks through a text token by token as TinyXML does.
class Walk {
 public:
  explicit Walk(const std::string& text)
      : text_(text.c_str()), inUtf8_(startsWith(kByteOrderMark)), knowsEncoding_(inUtf8_) {}

  XmlExtent measure() {
    while (takeToken()) {
    }
    return extent_;
  }

 private:
  bool atEnd() const { return at_ >= text_.size(); }
  /// A zero byte behind the end.
  char look(std::size_t ahead = 0) const {
    return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
  }
  bool startsWith(std::string_view what) const {
    return !atEnd() && text_.compare(at_, what.size(), what) == 0;
  }
  bool startsWithAnyCase(std::string_view what) const {
    return text_.size() - at_ >= what.size() &&
           ::strncasecmp(text_.data() + at_, what.data(), what.size()) == 0;
  }

  /// These go on to what they name; false when there is nothing more.
  bool skipBlanks();
  bool skipPast(std::string_view what);
  bool skipTextPast(char end);
  bool skipCharacter();
  bool skipNumberedCharacter();

  /// These take one of what they name; false at an error.
  bool takeToken();
  bool takeElement();
  bool takeAttribute();
  bool takeDeclaration();
  bool takeMarkup();
  bool takeName();

  const std::string_view text_;
  std::size_t at_ = 0;
  int depth_ = 0;
  XmlExtent extent_;
  bool inUtf8_;
  bool knowsEncoding_;
};

bool Walk::skipBlanks() {
  while (isBlank(look()) || (inUtf8_ && (startsWith(kByteOrderMark) || startsWith("\xEF\xBF\xBE") ||
                                         startsWith("\xEF\xBF\xBF")))) {
    at_ += isBlank(look()) ? 1 : 3;
  }
  return !atEnd();
}

bool Walk::skipPast(std::string_view what) {
  at_ = std::min(text_.find(what, at_), text_.size());
  at_ = std::min(at_ + what.size(), text_.size());
  return !atEnd();
}

bool Walk::skipTextPast(char end) {
  while (!atEnd() && look() != end) {
    if (!skipCharacter()) {
      return false;
    }
  }
  ++at_;
  return !atEnd();
}

/// A broken one swallows bytes that would mean something else.
bool Walk::skipCharacter() {
  const std::size_t length = inUtf8_ ? lengthInUtf8(look()) : 1;
  if (length == 1 && startsWith("&#") && look(2) != '\0') {
    return skipNumberedCharacter();
  }
  at_ += length;
  return true;
}

/// TinyXML goes to the next ';' and reads the number backwards from there. Whatever stands between
/// the '&' and the sign in front of the digits is swallowed: "&#<!--#65;" is the letter A.
bool Walk::skipNumberedCharacter() {
  const bool isHex = look(2) == 'x';
  const std::size_t end = text_.find(';', at_ + (isHex ? 3 : 2));
  if (end == std::string_view::npos) {
    return false;
  }
  const char* const digits = isHex ? "0123456789abcdefABCDEF" : "0123456789";
  at_ = text_.find_last_not_of(digits, end - 1);
  const bool isNumber = look() == (isHex ? 'x' : '#');
  at_ = end + 1;
  return isNumber;
}

bool Walk::takeToken() {
  if (!skipBlanks()) {
    return false;
  }
  if (look() != '<') {
    // Text outside of all elements is where TinyXML stops reading.
    const bool found = depth_ > 0 && skipTextPast('<');
    --at_;
    return found;
  }
  if (depth_ > 0 && startsWith("</")) {
    --depth_;
    return skipPast(">");
  }
  if (startsWithAnyCase("<?xml")) {
    return takeDeclaration();
  }
  return startsWith("<!") || !beginsName(look(1)) ? takeMarkup() : takeElement();
}

bool Walk::takeMarkup() {
  if (startsWith("<!--")) {
    at_ += 4;
    return skipPast("-->");
  }
  return skipPast(startsWith("<![CDATA[") ? "]]>" : ">");
}

bool Walk::takeElement() {
  extent_.depth = std::max(extent_.depth, ++depth_);
  ++at_;
  // Some characters count both as letters and as blanks; here TinyXML takes them for blanks.
  if (!skipBlanks() || !takeName()) {
    return false;
  }
  for (int attributes = 1; skipBlanks() && look() != '>'; ++attributes) {
    if (look() == '/') {
      --depth_;
      ++at_;
      const bool closed = look() == '>';
      ++at_;
      return closed;
    }
    if (!takeAttribute()) {
      return false;
    }
    extent_.attributes = std::max(extent_.attributes, attributes);
  }
  ++at_;
  return !atEnd();
}

bool Walk::takeName() {
  if (!beginsName(look())) {
    return false;
  }
  while (isInName(look())) {
    ++at_;
  }
  return !atEnd();
}

bool Walk::takeAttribute() {
  if (!takeName() || !skipBlanks() || look() != '=') {
    return false;
  }
  ++at_;
  if (!skipBlanks()) {
    return false;
  }
  const char quote = look();
  if (quote == '"' || quote == '\'') {
    ++at_;
    return skipTextPast(quote);
  }
  while (!atEnd() && !isBlank(look()) && look() != '/' && look() != '>') {
    if (look() == '"' || look() == '\'') {
      return false;
    }
    ++at_;
  }
  return !atEnd();
}

bool Walk::takeDeclaration() {
  TiXmlDeclaration declaration;
  const char* const behind = declaration.Parse(
      text_.data() + at_, nullptr, inUtf8_ ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY);
  if (behind == nullptr) {
    return false;
  }
  at_ = static_cast<std::size_t>(behind - text_.data());
  if (depth_ == 0 && !knowsEncoding_) {
    knowsEncoding_ = true;
    inUtf8_ = namesUtf8(declaration.Encoding());
  }
  return !atEnd();
}

}  // namespace

XmlExtent extentOfXml(const std::string& text) {
  return Walk(text).measure();
}

}  // namespace qov
