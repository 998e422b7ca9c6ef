#include "diag/standard_error.h"

#include <cerrno>
#include <cstdio>

namespace qov {

namespace {

bool writeAll(const char* from, size_t size) {
  while (size > 0) {
    const size_t written = std::fwrite(from, 1, size, stderr);
    if (written < size) {
      const bool interrupted = errno == EINTR;
      std::clearerr(stderr);
      if (!interrupted) {
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
