#include "tools/common/standard_streams.h"

#include <fcntl.h>

#include <array>
#include <cstddef>

namespace qov::tools {

void keepStandardStreams() {
  // Opened for the wrong direction on purpose.
  constexpr std::array<int, 3> kModes{O_WRONLY, O_RDONLY, O_RDONLY};
  for (std::size_t descriptor = 0; descriptor < kModes.size(); ++descriptor) {
    if (::fcntl(static_cast<int>(descriptor), F_GETFD) == -1) {
      // The lowest free number is this one.
      static_cast<void>(::open("/dev/null", kModes[descriptor]));
    }
  }
}

}  // namespace qov::tools
