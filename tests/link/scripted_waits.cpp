#include "tests/link/scripted_waits.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <ctime>
#include <utility>

namespace qov::test {
namespace {

thread_local InsteadOfWaits::Script script;

int real(pollfd* entries, nfds_t count, int timeout) {
  const std::timespec limit{timeout / 1000, timeout % 1000 * 1000000L};
  return ::ppoll(entries, count, timeout < 0 ? nullptr : &limit, nullptr);
}

ssize_t real(int socket, void* to, std::size_t length, int flags) {
  return ::recvfrom(socket, to, length, flags, nullptr, nullptr);
}

int timeoutOf(int socket) {
  timeval timeout{};
  socklen_t size = sizeof timeout;
  ::getsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, &size);
  return static_cast<int>(timeout.tv_sec * 1000 + timeout.tv_usec / 1000);
}

}  // namespace

InsteadOfWaits::InsteadOfWaits(Script instead) {
  script = std::move(instead);
}

InsteadOfWaits::~InsteadOfWaits() {
  script = nullptr;
}

}  // namespace qov::test

// In place of the system's, for the libraries, too.

extern "C" int poll(pollfd* entries, nfds_t count, int timeout) {
  using namespace qov::test;
  const auto wait = [=] { return real(entries, count, timeout); };
  return script ? script(wait, timeout) : wait();
}

extern "C" ssize_t recv(int socket, void* to, std::size_t length, int flags) {
  using namespace qov::test;
  const auto wait = [=] { return static_cast<int>(real(socket, to, length, flags)); };
  return script && flags == 0 ? script(wait, timeoutOf(socket)) : wait();
}
