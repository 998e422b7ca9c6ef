#ifndef QOV_MODULES_COMMON_DECODE_FAULT_H
#define QOV_MODULES_COMMON_DECODE_FAULT_H

#include <qovpub/qov_message_package.h>

#include <string>

namespace qov::common {

/// Why a message was refused: one of the words head-short, magic, version, type, length,
/// record-short, record-length, cell-short, cell-type and cell-length, and the numbers. Throws
/// std::bad_alloc when nothing is wrong but memory.
std::string textOf(const DecodeFault& fault);

/// The four bytes as they are shown: "0x55555555".
std::string hexWord(std::uint32_t word);

}  // namespace qov::common

#endif
