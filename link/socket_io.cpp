#include "link/socket_io.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <qovpub/qov_interruption.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

namespace qov {
namespace {

/// A socket that is closed unless it is handed on; errno stays.
class Socket {
 public:
  explicit Socket(int domain)
      : handle_(::socket(domain, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
  ~Socket() {
    if (handle_ != ACE_INVALID_HANDLE) {
      const int error = errno;
      ::close(handle_);
      errno = error;
    }
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  ACE_HANDLE get() const { return handle_; }
  ACE_HANDLE release() { return std::exchange(handle_, ACE_INVALID_HANDLE); }

 private:
  ACE_HANDLE handle_;
};

/// How long to wait, and what else ends a wait.
struct Patience {
  const Deadline& deadline;
  const Interruption& interruption;
};

bool canceled() {
  errno = ECANCELED;
  return false;
}

/// Waits until `events` or an error is there. False with errno set: ETIME when the time is over,
/// ECANCELED when the wait was interrupted.
bool waitFor(ACE_HANDLE socket, short events, const Patience& patience) {
  pollfd entries[] = {{socket, events, 0}, {patience.interruption.handle(), POLLIN, 0}};
  while (const int timeout = patience.deadline.pollTimeout()) {
    const int ready = ::poll(entries, std::size(entries), timeout);
    // What the poll has seen holds, although the interruption may be over by now. Without a
    // descriptor the poll sees none.
    if (entries[1].revents != 0 || patience.interruption.isSet()) {
      return canceled();
    }
    if (ready > 0) {
      return true;
    }
    if (ready < 0 && errno != EINTR) {
      return false;
    }
  }
  errno = ETIME;
  return false;
}

/// After a call that has done nothing: whether there is time to try it again, and reason to.
bool mayRepeat(ACE_HANDLE socket, short events, const Patience& patience) {
  if (errno == EAGAIN || errno == EWOULDBLOCK) {
    return waitFor(socket, events, patience);
  }
  return errno == EINTR;
}

bool finishConnecting(ACE_HANDLE socket, const Patience& patience) {
  if (!waitFor(socket, POLLOUT, patience)) {
    // What the system says of a connection that nobody takes.
    errno = errno == ETIME ? ETIMEDOUT : errno;
    return false;
  }
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    return false;
  }
  errno = error;
  return error == 0;
}

/// A connection to a port of this machine where nobody listens meets itself when the system picks
/// that very port for its own end. It would answer every request with the request.
bool isConnectedToItself(ACE_HANDLE socket) {
  sockaddr_storage own{};
  sockaddr_storage peer{};
  socklen_t ownSize = sizeof own;
  socklen_t peerSize = sizeof peer;
  return ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownSize) == 0 &&
         ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerSize) == 0 &&
         ownSize == peerSize && std::memcmp(&own, &peer, ownSize) == 0;
}

bool connectWithin(ACE_HANDLE socket, const ACE_INET_Addr& address, const Patience& patience) {
  const auto* to = static_cast<const sockaddr*>(address.get_addr());
  if (::connect(socket, to, static_cast<socklen_t>(address.get_size())) != 0 &&
      (errno != EINPROGRESS || !finishConnecting(socket, patience))) {
    return false;
  }
  if (isConnectedToItself(socket)) {
    errno = ECONNREFUSED;
    return false;
  }
  return true;
}

/// Says it better than the system would of an invalid handle.
bool isUsable(ACE_HANDLE socket, const Interruption& interruption) {
  if (interruption.isSet()) {
    return canceled();
  }
  if (socket == ACE_INVALID_HANDLE) {
    errno = ENOTCONN;
    return false;
  }
  return true;
}

}  // namespace

ACE_HANDLE connectTo(const ACE_INET_Addr& address, const Deadline& deadline,
                     const Interruption& interruption) {
  Socket socket(address.get_type());
  if (socket.get() == ACE_INVALID_HANDLE ||
      !connectWithin(socket.get(), address, {deadline, interruption})) {
    return ACE_INVALID_HANDLE;
  }
  // Messages are written whole: there is nothing to gain from holding back their last segment.
  const int on = 1;
  static_cast<void>(::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on));
  return socket.release();
}

ssize_t sendWithin(ACE_HANDLE socket, const unsigned char* data, std::size_t length,
                   const Deadline& deadline, const Interruption& interruption) {
  if (!isUsable(socket, interruption)) {
    return -1;
  }
  ssize_t sent = 0;
  // There mostly is room, which the send itself says at less cost than a poll before it.
  do {
    sent = ::send(socket, data, length, MSG_NOSIGNAL);
  } while (sent < 0 && mayRepeat(socket, POLLOUT, {deadline, interruption}));
  return sent;
}

bool receiveAll(ACE_HANDLE socket, char* to, std::size_t length, const Deadline& deadline,
                const Interruption& interruption) {
  if (!isUsable(socket, interruption)) {
    return false;
  }
  while (length > 0) {
    const ssize_t received = ::recv(socket, to, length, 0);
    if (received > 0) {
      to += received;
      length -= static_cast<std::size_t>(received);
    } else if (received == 0) {
      errno = ENOLINK;
      return false;
    } else if (!mayRepeat(socket, POLLIN, {deadline, interruption})) {
      return false;
    }
  }
  return true;
}

}  // namespace qov
