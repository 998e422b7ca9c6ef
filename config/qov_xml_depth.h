#ifndef QOV_CONFIG_QOV_XML_DEPTH_H
#define QOV_CONFIG_QOV_XML_DEPTH_H

#include <cstddef>
#include <string>

namespace qov {

/// TinyXML takes the length of a character from its first byte, and so may step over the end of a
/// text that ends within a character.
constexpr std::size_t kXmlPadding = 4;

/// Whether TinyXML, given `text`, would go into more than `limit` elements one inside the other.
/// `text` ends with kXmlPadding zero bytes and has no others. Tells that without going deep itself,
/// from the same reading of the text: comments, CDATA, declarations, attribute values and
/// everything else in angle brackets hide what is in them, and reading ends where TinyXML finds an
/// error.
bool xmlNestsDeeperThan(int limit, const std::string& text);

}  // namespace qov

#endif
