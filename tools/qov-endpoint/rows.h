#ifndef QOV_TOOLS_QOV_ENDPOINT_ROWS_H
#define QOV_TOOLS_QOV_ENDPOINT_ROWS_H

#include <qovpub/qov_msg.h>

#include <cstdint>
#include <map>

#include "tools/common/endpoint_protocol.h"

namespace qov::endpoint {

/// The rows of one table by their keys. A row's command code means nothing, and it has neither a
/// cursor nor a status: these are made for each answer.
using Rows = std::map<std::uint64_t, CTLVRecordV3>;

/// Bytes that an answer adds to a row at most: a cursor, and a status that a fault may make longer.
inline constexpr unsigned long kRowOverhead = 2 * (MIN_TLV_SIZE + sizeof(std::uint64_t));

inline bool isReservedTag(unsigned short tag) {
  return tag == kCursorTag || tag == kStatusTag;
}

}  // namespace qov::endpoint

#endif
