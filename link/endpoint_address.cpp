#include "link/endpoint_address.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "frame/env/failure.h"

namespace qov {
namespace {

using Found = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

/// 0 or an error of getaddrinfo(). A null `host` is this machine.
int lookUp(const char* host, unsigned short port, Found& found) {
  addrinfo wanted{};
  wanted.ai_family = AF_UNSPEC;
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_NUMERICSERV;
  addrinfo* list = nullptr;
  const int error = ::getaddrinfo(host, std::to_string(port).c_str(), &wanted, &list);
  if (error == 0) {
    found.reset(list);
  }
  return error;
}

std::string causeOf(int error) {
  switch (error) {
    case EAI_NONAME:
      return "no such host";
    case EAI_SYSTEM:
      return "the host cannot be looked up: " + errnoText(errno);
    default:
      return std::string("the host cannot be looked up: ") + ::gai_strerror(error);
  }
}

std::optional<HostPort> hostPort(const std::string& host, const std::string& port) {
  ACE_INET_Addr address;
  // ACE takes a text without a colon for a port, and an empty one for port 0.
  if (port.find(':') != std::string::npos || address.string_to_addr(port.c_str()) != 0 ||
      address.get_port_number() == 0) {
    return std::nullopt;
  }
  return HostPort{host, address.get_port_number()};
}

/// Longer than any address: ACE writes nothing at all into a buffer that is too short.
using WholeText = std::array<char, 64>;

WholeText written(const ACE_INET_Addr& address) {
  WholeText text{};
  address.addr_to_string(text.data(), text.size(), 1);
  return text;
}

}  // namespace

std::optional<HostPort> hostPortOf(const std::string& text) {
  const bool bracketed = text[0] == '[';
  const std::size_t end = bracketed ? text.find("]:") : text.rfind(':');
  if (end == std::string::npos) {
    return hostPort("", bracketed ? "" : text);
  }
  const std::string host = bracketed ? text.substr(1, end - 1) : text.substr(0, end);
  return host.empty() ? std::nullopt : hostPort(host, text.substr(end + (bracketed ? 2 : 1)));
}

std::string whyNoHostPort(const std::string& text) {
  return hostPortOf(text) ? ""
                          : "\"" + text + "\" is not host:port; no endpoint is taken in its place";
}

std::vector<ACE_INET_Addr> addressesOf(const HostPort& where, std::string& cause) {
  Found found(nullptr, &::freeaddrinfo);
  int error = lookUp(where.host.empty() ? nullptr : where.host.c_str(), where.port, found);
  if (error != 0 && where.host == "localhost") {
    // This name means this machine, also where no hosts file says so.
    error = lookUp(nullptr, where.port, found);
  }
  std::vector<ACE_INET_Addr> addresses;
  if (error != 0) {
    cause = causeOf(error);
    return addresses;
  }
  for (const addrinfo* at = found.get(); at != nullptr; at = at->ai_next) {
    addresses.emplace_back(reinterpret_cast<const sockaddr_in*>(at->ai_addr),
                           static_cast<int>(at->ai_addrlen));
  }
  return addresses;
}

AddressText textOf(const ACE_INET_Addr& address) {
  const WholeText whole = written(address);
  AddressText text{};
  std::copy_n(whole.begin(), text.size() - 1, text.begin());
  return text;
}

std::string wholeTextOf(const ACE_INET_Addr& address) {
  return written(address).data();
}

}  // namespace qov
