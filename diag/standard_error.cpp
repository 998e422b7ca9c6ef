#include "diag/standard_error.h"

#include <cerrno>
#include <cstdio>

namespace qov {

void writeStandardError(std::string_view text) {
  while (!text.empty()) {
    const size_t written = std::fwrite(text.data(), 1, text.size(), stderr);
    if (written < text.size()) {
      const bool interrupted = errno == EINTR;
      std::clearerr(stderr);
      if (!interrupted) {
        return;
      }
    }
    text.remove_prefix(written);
  }
}

}  // namespace qov
