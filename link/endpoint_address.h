#ifndef QOV_LINK_ENDPOINT_ADDRESS_H
#define QOV_LINK_ENDPOINT_ADDRESS_H

#include <ace/INET_Addr.h>

#include <array>

class CQOVDebugKitGuard;

namespace qov {

/// The endpoint that the process's configuration file names, or the default one. Port 0, after a
/// log line, when what it names cannot be understood: the link shall not work with another endpoint
/// than the one that was meant. Never throws.
ACE_INET_Addr configuredEndpoint(CQOVDebugKitGuard& guard);

/// Text of at most 32 characters, and the NUL behind it.
using AddressText = std::array<char, 33>;

/// `address` in numbers, as in 127.0.0.1:19001, cut to fit.
AddressText textOf(const ACE_INET_Addr& address);

}  // namespace qov

#endif
