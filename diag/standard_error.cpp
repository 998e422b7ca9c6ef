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

}  // namespace

void writeStandardError(std::string_view text) {
  while (!text.empty()) {
    errno = 0;
    const size_t written = std::fwrite(text.data(), 1, text.size(), stderr);
    if (written < text.size()) {
      const int reason = errno;
      std::clearerr(stderr);
      if (!mayGoOn(reason)) {
        return;
      }
    }
    text.remove_prefix(written);
  }
}

}  // namespace qov
