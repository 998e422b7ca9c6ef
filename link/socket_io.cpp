#include "link/socket_io.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "diag/uncancelled.h"
#include "link/interruption.h"

namespace qov {
namespace {

/// A socket that is closed unless it is handed on; errno stays. A thread that is to be cancelled
/// closes it, too: in a destructor its end would be that of the process.
class Socket {
 public:
  explicit Socket(int domain)
      : handle_(::socket(domain, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
  ~Socket() {
    if (handle_ != ACE_INVALID_HANDLE) {
      const int error = errno;
      const Uncancelled closing;
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
  Interruption& interruption;
};

bool canceled() {
  errno = ECANCELED;
  return false;
}

/// Waits until `events` or an error is there. False with errno set: ETIME when the time is over,
/// ECANCELED when the wait was interrupted, also when the interruption is over by now.
bool waitFor(ACE_HANDLE socket, short events, const Patience& patience) {
  Interruption::Wait wait(patience.interruption, socket);
  pollfd entry{socket, events, 0};
  int ready = 0;
  while (!wait.isInterrupted()) {
    if (ready > 0) {
      return wait.end() || canceled();
    }
    if (ready < 0 && errno != EINTR) {
      return false;
    }
    const int timeout = patience.deadline.pollTimeout();
    if (timeout == 0) {
      errno = ETIME;
      return false;
    }
    ready = ::poll(&entry, 1, timeout);
  }
  return canceled();
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

/// Receives once, and sleeps until something comes or the time that letSleep() has set is over.
ssize_t receiveAsleep(ACE_HANDLE socket, char* to, std::size_t length, Interruption& interruption) {
  Interruption::Wait wait(interruption, socket);
  const ssize_t received = wait.isInterrupted() ? -1 : ::recv(socket, to, length, 0);
  if (!wait.end()) {
    canceled();
    return -1;
  }
  return received;
}

}  // namespace

bool isUsable(ACE_HANDLE socket, const Interruption& interruption) {
  if (interruption.isSet()) {
    return canceled();
  }
  // Says it better than the system would of an invalid handle.
  if (socket == ACE_INVALID_HANDLE) {
    errno = ENOTCONN;
    return false;
  }
  return true;
}

ACE_HANDLE connectTo(const ACE_INET_Addr& address, const Deadline& deadline,
                     Interruption& interruption) {
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
                   const ACE_Time_Value& timeout, Interruption& interruption) {
  if (!isUsable(socket, interruption)) {
    return -1;
  }
  const auto send = [=] { return ::send(socket, data, length, MSG_NOSIGNAL | MSG_DONTWAIT); };
  // There mostly is room, which the send itself says at less cost than a poll before it.
  ssize_t sent = send();
  if (sent < 0) {
    const Deadline deadline(&timeout);
    while (sent < 0 && mayRepeat(socket, POLLOUT, {deadline, interruption})) {
      sent = send();
    }
  }
  return sent;
}

bool letSleep(ACE_HANDLE socket, const ACE_Time_Value& time) {
  const timeval limit = time;
  int nonBlocking = 0;
  // For the system no time at all is as long as it takes.
  return time > ACE_Time_Value::zero &&
         ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
         ::ioctl(socket, FIONBIO, &nonBlocking) == 0;
}

ssize_t receiveWithin(ACE_HANDLE socket, char* to, std::size_t length, bool maySleep,
                      const Deadline& deadline, Interruption& interruption) {
  ssize_t received = maySleep ? receiveAsleep(socket, to, length, interruption)
                              : ::recv(socket, to, length, MSG_DONTWAIT);
  while (received < 0 && mayRepeat(socket, POLLIN, {deadline, interruption})) {
    received = ::recv(socket, to, length, MSG_DONTWAIT);
  }
  if (received == 0) {
    errno = ENOLINK;
    return -1;
  }
  return received;
}

}  // namespace qov
