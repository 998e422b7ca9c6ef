#ifndef QOV_TOOLS_QOVCTL_FLEET_MESSAGE_H
#define QOV_TOOLS_QOVCTL_FLEET_MESSAGE_H

#include <json/value.h>
#include <qovpub/qov_message_package.h>

#include <memory>
#include <string>

#include "tools/qovctl/fleet_broker.h"

namespace qov::ctl {

/// The content type of a message's bytes.
inline constexpr const char* kMessageBytes = "application/vnd.qov.message";

/// The message that is delivered, as bytes or as JSON, by its content type. Throws
/// std::runtime_error with what is wrong with it.
std::unique_ptr<CQOV_MsgPackage> messageOf(const Delivery& delivery);

/// The message as "qovctl decode --json" has it.
Json::Value jsonOf(const CQOV_MsgPackage& message);

/// The records of a message, of an OM message those inside, in one line: "4096 1:lo 2:1; 4097
/// 1:eth0", command and TAG:VALUE; "-" without records. Control characters in hexadecimal form.
std::string recordsLine(const CQOV_MsgPackage& message);

}  // namespace qov::ctl

#endif
