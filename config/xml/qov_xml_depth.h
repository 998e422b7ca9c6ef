#ifndef QOV_CONFIG_XML_QOV_XML_DEPTH_H
#define QOV_CONFIG_XML_QOV_XML_DEPTH_H

#include <cstddef>
#include <string>

namespace qov {

/// TinyXML takes the length of a character from its first byte, and so may step over the end of a
/// text that ends within a character.
constexpr std::size_t kXmlPadding = 4;

/// Of a text, what costs TinyXML more than its bytes.
struct XmlExtent {
  /// Elements one inside the other, the root included.
  int depth = 0;
  /// The most attributes of one element.
  int attributes = 0;
};

/// The extent of `text` as TinyXML reads it, found without going deep. `text` ends with kXmlPadding
/// zero bytes and has no others. Comments, CDATA, declarations, attribute values and everything
/// else in angle brackets hide what is in them, and reading ends where TinyXML finds an error.
XmlExtent extentOfXml(const std::string& text);

}  // namespace qov

#endif
