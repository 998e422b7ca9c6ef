#include "config/xml/qov_xml_depth.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace qov {
namespace {

/// What TinyXML reads its nodes with.
struct Reading : TiXmlBase {
  using TiXmlBase::IsAlpha;
  using TiXmlBase::ReadName;
  using TiXmlBase::SkipWhiteSpace;
  using TiXmlBase::StringEqual;
};

/// Walks through a text as TinyXML does, and leaves to it where each token ends. Only its elements
/// go deep, and those are not given to it.
class Walk {
 public:
  explicit Walk(const std::string& text) : at_(text.c_str()) {
    if (startsWith("\xEF\xBB\xBF")) {
      encoding_ = TIXML_ENCODING_UTF8;
    }
  }

  XmlExtent measure() {
    while (takeToken()) {
    }
    return extent_;
  }

 private:
  bool startsWith(const char* what, bool inAnyCase = false) const {
    return *at_ != '\0' && Reading::StringEqual(at_, what, inAnyCase, encoding_);
  }
  /// False at the end and, where TinyXML gives null, at an error.
  bool goTo(const char* place) {
    at_ = place;
    return place != nullptr && *place != '\0';
  }
  bool skipBlanks() { return goTo(Reading::SkipWhiteSpace(at_, encoding_)); }
  template <class Node>
  bool take(Node&& node) {
    return goTo(node.Parse(at_, nullptr, encoding_));
  }

  bool takeToken();
  bool takeMarkup();
  bool takeDeclaration();
  bool takeElement();

  const char* at_;
  TiXmlEncoding encoding_ = TIXML_ENCODING_UNKNOWN;
  int depth_ = 0;
  XmlExtent extent_;
};

bool Walk::takeToken() {
  if (!skipBlanks()) {
    return false;
  }
  if (*at_ != '<') {
    // Text outside of all elements is where TinyXML stops reading.
    return depth_ > 0 && take(TiXmlText(""));
  }
  if (depth_ > 0 && startsWith("</")) {
    --depth_;
    const char* const end = std::strchr(at_, '>');
    return end != nullptr && goTo(end + 1);
  }
  return takeMarkup();
}

bool Walk::takeMarkup() {
  if (startsWith("<?xml", true)) {
    return takeDeclaration();
  }
  if (startsWith("<!--")) {
    return take(TiXmlComment());
  }
  if (startsWith("<![CDATA[")) {
    TiXmlText text("");
    text.SetCDATA(true);
    return take(text);
  }
  const auto next = static_cast<unsigned char>(at_[1]);
  return next == '_' || Reading::IsAlpha(next, encoding_) != 0 ? takeElement()
                                                               : take(TiXmlUnknown());
}

/// The first one outside of all elements says the encoding. UTF-8 is that of one that names none.
bool Walk::takeDeclaration() {
  TiXmlDeclaration declaration;
  const bool more = take(declaration);
  if (depth_ == 0 && encoding_ == TIXML_ENCODING_UNKNOWN) {
    const char* const named = declaration.Encoding();
    const bool isUtf8 = *named == '\0' ||
                        Reading::StringEqual(named, "UTF-8", true, TIXML_ENCODING_UNKNOWN) ||
                        Reading::StringEqual(named, "UTF8", true, TIXML_ENCODING_UNKNOWN);
    encoding_ = isUtf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
  }
  return more;
}

bool Walk::takeElement() {
  extent_.depth = std::max(extent_.depth, ++depth_);
  std::string name;
  if (!goTo(Reading::SkipWhiteSpace(at_ + 1, encoding_)) ||
      !goTo(Reading::ReadName(at_, &name, encoding_))) {
    return false;
  }
  for (int attributes = 1; skipBlanks() && *at_ != '>'; ++attributes) {
    if (*at_ == '/') {
      --depth_;
      return at_[1] == '>' && goTo(at_ + 2);
    }
    if (!take(TiXmlAttribute())) {
      return false;
    }
    extent_.attributes = std::max(extent_.attributes, attributes);
  }
  return at_ != nullptr && *at_ == '>' && goTo(at_ + 1);
}

}  // namespace

XmlExtent extentOfXml(const std::string& text) {
  return Walk(text).measure();
}

}  // namespace qov
