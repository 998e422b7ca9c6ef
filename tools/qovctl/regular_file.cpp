#include "tools/qovctl/regular_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace qov::ctl {
namespace {

[[noreturn]] void throwErrno(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

void checkKind(const std::string& path, const struct stat& status) {
  const mode_t mode = status.st_mode;
  if (!S_ISREG(mode)) {
    throw std::runtime_error(path + ": left out, it is " +
                             (S_ISFIFO(mode)   ? "a pipe"
                              : S_ISDIR(mode)  ? "a folder"
                              : S_ISSOCK(mode) ? "a socket"
                              : S_ISLNK(mode)  ? "a symbolic link"
                                               : "a device"));
  }
}

}  // namespace

RegularFile::RegularFile(const std::string& path) : path_(path) {
  if (::lstat(path.c_str(), &status_) != 0) {
    throwErrno(path);
  }
  checkKind(path, status_);
  // Something else may have taken its place meanwhile.
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW;
  file_ = status::Descriptor(::open(path.c_str(), kFlags));
  if (file_.get() < 0 || ::fstat(file_.get(), &status_) != 0) {
    throwErrno(path);
  }
  checkKind(path, status_);
}

std::string RegularFile::read(std::size_t most, std::size_t begin) const {
  std::string content;
  std::array<char, 65536> bytes;
  while (content.size() < most) {
    const ssize_t count =
        ::pread(file_.get(), bytes.data(), std::min(bytes.size(), most - content.size()),
                static_cast<off_t>(begin + content.size()));
    if (count < 0 && errno != EINTR) {
      throwErrno(path_);
    }
    if (count == 0) {
      break;
    }
    content.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return content;
}

}  // namespace qov::ctl
