#ifndef QOV_MODULES_COMMON_MESSAGE_PAYLOAD_H
#define QOV_MODULES_COMMON_MESSAGE_PAYLOAD_H

#include <qovpub/qov_message_package.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "modules/common/json_object.h"

namespace qov::common {

// A message between modules, plain or OM, as it leaves and enters the process.

/// Bytes that are no message. what() says at which byte and why.
class BadBytes : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What the message is in JSON, as message_json.h has it, in one line without an end.
std::string jsonOfMessage(const CQOV_MsgPackage& message);

/// The message that the whole of `text` describes: an OM message if there is an "inner" one. Throws
/// NotJson and BadJson.
std::unique_ptr<CQOV_MsgPackage> messageOfJson(std::string_view text);

/// How many bytes the message has; 0 for an OM message without a message inside.
std::size_t sizeOfMessage(const CQOV_MsgPackage& message);

/// The bytes of the message, whose header gets its length. Empty when it has none: an OM message
/// without a message inside, or with records that are too long.
std::string bytesOfMessage(CQOV_MsgPackage& message);

/// The message that has these bytes, all of them: an OM message if its flags say so. Throws
/// BadBytes, and std::bad_alloc.
std::unique_ptr<CQOV_MsgPackage> messageOfBytes(std::string_view bytes);

}  // namespace qov::common

#endif
