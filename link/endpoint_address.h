#ifndef QOV_LINK_ENDPOINT_ADDRESS_H
#define QOV_LINK_ENDPOINT_ADDRESS_H

#include <ace/INET_Addr.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace qov {

/// Where an endpoint is, as somebody has written it.
struct HostPort {
  std::string host;  ///< a name or an address; empty for this machine
  unsigned short port;
};

/// What `text` says: host:port, [address]:port, or a port alone. The port is a number from 1 to
/// 65535 or a name that the system knows. Nothing when it is no such text.
std::optional<HostPort> hostPortOf(const std::string& text);

/// Why hostPortOf(text) is nothing; empty when it is something.
std::string whyNoHostPort(const std::string& text);

/// All addresses of a host in the order in which to try them, IPv6 and IPv4. Asks the system, which
/// may take as long as its name servers do. When there are none, `cause` says why.
std::vector<ACE_INET_Addr> addressesOf(const HostPort& where, std::string& cause);

/// Text of at most 32 characters, and the NUL behind it.
using AddressText = std::array<char, 33>;

/// `address` in numbers, as in 127.0.0.1:19001, cut to fit. Takes no memory.
AddressText textOf(const ACE_INET_Addr& address);

/// The same, whole.
std::string wholeTextOf(const ACE_INET_Addr& address);

}  // namespace qov

#endif
