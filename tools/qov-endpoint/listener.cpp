#include "tools/qov-endpoint/listener.h"

#include <ace/Reactor.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace qov::endpoint {
namespace {

/// How many connections one turn accepts before others have theirs.
constexpr int kAcceptedAtOnce = 64;

std::runtime_error failure(const std::string& what) {
  return std::runtime_error(what + ": " + std::strerror(errno));
}

void set(int socket, int level, int option, int value) {
  ::setsockopt(socket, level, option, &value, sizeof value);
}

/// A socket bound to `address`, or -1.
int boundTo(const ACE_INET_Addr& address) {
  const int socket = ::socket(address.get_type(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (socket < 0) {
    return -1;
  }
  // What the kernel still remembers of connections to this port must not matter.
  set(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  if (address.get_type() == AF_INET6) {
    // On :: clients of both kinds are served, whatever the system's default is.
    set(socket, IPPROTO_IPV6, IPV6_V6ONLY, 0);
  }
  const auto* name = static_cast<const sockaddr*>(address.get_addr());
  if (::bind(socket, name, static_cast<socklen_t>(address.get_addr_size())) != 0) {
    const int error = errno;
    ::close(socket);
    errno = error;
    return -1;
  }
  return socket;
}

/// The same, but a port that is in use is asked for again until the time is over.
int boundWithin(std::chrono::seconds wait, const ACE_INET_Addr& address, const Log& log) {
  const auto limit = std::chrono::steady_clock::now() + wait;
  int socket = boundTo(address);
  if (socket < 0 && errno == EADDRINUSE) {
    log.event("port " + std::to_string(address.get_port_number()) + " is in use");
    do {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      socket = boundTo(address);
    } while (socket < 0 && errno == EADDRINUSE && std::chrono::steady_clock::now() < limit);
  }
  return socket;
}

/// The port that a socket bound to port 0 has got. It stands at the same place for IPv4 and IPv6.
unsigned short portOf(int socket) {
  sockaddr_in6 name = {};
  socklen_t size = sizeof name;
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size);
  return ntohs(name.sin6_port);
}

}  // namespace

std::string textOf(const ACE_INET_Addr& address) {
  const std::string host = address.get_host_addr();
  const bool brackets = address.get_type() == AF_INET6;
  return (brackets ? "[" + host + "]" : host) + ":" + std::to_string(address.get_port_number());
}

Listener::Listener(const Address& address, const Log& log, ACE_Reactor& reactor, Accepted accepted)
    : ACE_Event_Handler(&reactor), address_(address.at), accepted_(std::move(accepted)) {
  bind(address.wait, log);
  listen();
}

Listener::~Listener() {
  stop();
  ::close(socket_);
}

void Listener::bind(std::chrono::seconds wait, const Log& log) {
  // The kernel keeps a port for a socket that has stopped listening only if it was asked for by its
  // number. So a free one is asked for twice, while the first socket still holds it.
  const int finder = address_.get_port_number() == 0 ? boundTo(address_) : -1;
  if (finder >= 0) {
    address_.set_port_number(portOf(finder));
  }
  socket_ = boundWithin(wait, address_, log);
  const int error = errno;
  if (finder >= 0) {
    ::close(finder);
  }
  if (socket_ < 0) {
    errno = error;
    throw failure("cannot bind to " + textOf(address_));
  }
}

void Listener::listen() {
  // The connections inherit it.
  set(socket_, SOL_SOCKET, SO_REUSEADDR, 1);
  if (::listen(socket_, SOMAXCONN) != 0) {
    throw failure("cannot listen");
  }
  listening_ = true;
  if (reactor()->register_handler(this, ACCEPT_MASK) != 0) {
    throw failure("cannot register the listening socket");
  }
  registered_ = true;
}

void Listener::stop() {
  reactor()->cancel_timer(this);
  if (registered_) {
    reactor()->remove_handler(this, ACCEPT_MASK | DONT_CALL);
    registered_ = false;
  }
  // Shut down while it does not listen, it would pass that on to all connections accepted later.
  if (std::exchange(listening_, false)) {
    ::shutdown(socket_, SHUT_RDWR);
  }
}

void Listener::refuse(std::chrono::milliseconds time) {
  // A socket that does not listen would let others bind to its port if it had this set.
  set(socket_, SOL_SOCKET, SO_REUSEADDR, 0);
  stop();
  pause(time);
}

/// Lets nothing in until the time is over.
void Listener::pause(std::chrono::milliseconds time) {
  const auto now = std::chrono::steady_clock::now();
  until_ = std::max(until_, now + time);
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(until_ - now);
  ACE_Time_Value delay;
  delay.msec(static_cast<long>(rest.count()));
  reactor()->schedule_timer(this, nullptr, delay);
}

int Listener::handle_timeout(const ACE_Time_Value&, const void*) {
  if (!registered_) {
    listen();
  }
  return 0;
}

int Listener::handle_input(ACE_HANDLE) {
  for (int accepted = 0; accepted < kAcceptedAtOnce && registered_; ++accepted) {
    const int socket = ::accept4(socket_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket >= 0) {
      set(socket, IPPROTO_TCP, TCP_NODELAY, 1);
      accepted_(socket);
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
      // The client stays in the queue, and the socket ready: asking again at once would be a loop.
      reactor()->remove_handler(this, ACCEPT_MASK | DONT_CALL);
      registered_ = false;
      pause(std::chrono::milliseconds(100));
    } else if (errno != EINTR && errno != ECONNABORTED) {
      break;
    }
  }
  return 0;
}

}  // namespace qov::endpoint
