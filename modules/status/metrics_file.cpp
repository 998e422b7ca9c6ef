#include "modules/status/metrics_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "modules/status/descriptor.h"

namespace qov::status {

MetricsFile::~MetricsFile() {
  if (isThere_) {
    ::unlink(path_.c_str());
  }
}

int MetricsFile::write(const std::string& text) {
  int error = writeFresh(text);
  if (error == 0 && std::rename(fresh_.c_str(), path_.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    ::unlink(fresh_.c_str());
  }
  isThere_ = isThere_ || error == 0;
  return error;
}

int MetricsFile::writeFresh(const std::string& text) const {
  // Made anew, so that a link of that name is not followed. Its mode is for all, whatever the file
  // mode mask says: who reads it is seldom the agent's user.
  constexpr mode_t kForAll = 0644;
  ::unlink(fresh_.c_str());
  const Descriptor file(::open(fresh_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kForAll));
  if (file.get() < 0 || ::fchmod(file.get(), kForAll) != 0) {
    return errno;
  }
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t count = ::write(file.get(), rest.data(), rest.size());
    if (count < 0) {
      return errno;
    }
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

}  // namespace qov::status
