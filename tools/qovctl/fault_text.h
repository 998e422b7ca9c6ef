#ifndef QOV_TOOLS_QOVCTL_FAULT_TEXT_H
#define QOV_TOOLS_QOVCTL_FAULT_TEXT_H

#include <qovpub/qov_message_package.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "tools/qovctl/message.h"

namespace qov::ctl {

/// The line that tells why a message of that kind was refused: its place, one of the words
/// head-short, magic, version, type, length, record-short, record-length, cell-short, cell-type and
/// cell-length, and the numbers. `start` is where in the input the message begins. Throws
/// std::bad_alloc when nothing is wrong but memory.
std::string textOf(const DecodeFault& fault, Kind kind, std::size_t start);

/// The same of `bytes` whose kind cannot be told.
std::string unknownKindText(std::string_view bytes, std::size_t start);

}  // namespace qov::ctl

#endif
