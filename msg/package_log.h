#ifndef MSG_PACKAGE_LOG_H
#define MSG_PACKAGE_LOG_H

#include <qovpub/qov_message_package.h>

#include <cstdint>

namespace qov {

// What the two kinds of internal packages log in the same words. The records name the source file
// of the package template, whoever asks: log watchers know them by it.

/// Says that a header was refused.
void logHeadFault(const DecodeFault& fault);

/// Says that there is no buffer to encode into.
void logNoBuffer();

/// Says that there is no memory for a message of `bytes`, and sets errno to ENOMEM.
void logNoMemory(std::uint64_t bytes) noexcept;

}  // namespace qov

#endif
