#include "diag/standard_error.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace qov {

namespace {

/// How long to wait for the reader of a standard error that does not block.
constexpr int kPatienceMs = 1000;

/// Whether a call that failed with `reason` is worth repeating.
bool mayGoOn(int reason) {
  if (reason == EAGAIN || reason == EWOULDBLOCK) {
    pollfd standardError{STDERR_FILENO, POLLOUT, 0};
    return ::poll(&standardError, 1, kPatienceMs) != 0;
  }
  return reason == EINTR;
}

bool writeAll(const char* from, size_t size) {
  while (size > 0) {
    errno = 0;
    const size_t written = std::fwrite(from, 1, size, stderr);
    if (written < size) {
      const int reason = errno;
      std::clearerr(stderr);
      if (!mayGoOn(reason)) {
        return false;
      }
    }
    from += written;
    size -= written;
  }
  return true;
}

}  // namespace

void writeStandardError(const iovec* pieces, int count) {
  for (int i = 0; i < count; ++i) {
    if (!writeAll(static_cast<const char*>(pieces[i].iov_base), pieces[i].iov_len)) {
      return;
    }
  }
}

}  // namespace qov
