#ifndef MSG_PACKAGE_FAULT_H
#define MSG_PACKAGE_FAULT_H

#include <qovpub/qov_message_package.h>

namespace qov {

/// What is wrong with the header that `size` bytes at `buf` start with, whatever its LEN.
template <class Head>
DecodeFault headFault(const unsigned char* buf, unsigned int size);

/// The same, and whether the message fits.
template <class Head>
DecodeFault messageFault(const unsigned char* buf, unsigned int size);

}  // namespace qov

#endif
