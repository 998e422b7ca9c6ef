#ifndef MSG_PACKAGE_CHECKS_H
#define MSG_PACKAGE_CHECKS_H

#include <qovpub/qov_message_package.h>

#include <cstdint>

namespace qov {

// What the two kinds of internal packages refuse in the same words. The log lines name the source
// file of the package template, whoever asks: log watchers know them by it.

/// What is wrong with the internal header that `size` bytes at `buf` start with, whatever its LEN;
/// logs that, too.
DecodeFault verifyInternalHead(const unsigned char* buf, unsigned int size);

/// Says that there is no buffer to encode into.
void logNoBuffer();

/// Says that there is no memory for a message of `bytes`, and sets errno to ENOMEM.
void logNoMemory(std::uint64_t bytes) noexcept;

}  // namespace qov

#endif
