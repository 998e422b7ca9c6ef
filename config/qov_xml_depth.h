#ifndef QOV_CONFIG_QOV_XML_DEPTH_H
#define QOV_CONFIG_QOV_XML_DEPTH_H

#include <string_view>

namespace qov {

/// Whether TinyXML, given `text`, would go into more than `limit` elements one inside the other.
/// There is no zero byte in `text`. Tells that without going deep itself, from the same reading of the text: comments, CDATA,
/// declarations, attribute values and everything else in angle brackets hide what is in them, and
/// reading ends where TinyXML finds an error.
bool xmlNestsDeeperThan(int limit, std::string_view text);

}  // namespace qov

#endif
