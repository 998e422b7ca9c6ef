#include "config/file_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace qov {
namespace {

constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kModeOfNewFile = 0644;

void syncDirectoryOf(const std::string& fileName) {
  const std::size_t slash = fileName.rfind('/');
  const std::string directory =
      slash == std::string::npos ? "." : fileName.substr(0, slash == 0 ? 1 : slash);
  const int handle = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (handle >= 0) {
    ::fsync(handle);  // not every file system can; the new name is in place either way
    ::close(handle);
  }
}

}  // namespace

FileReplacement::~FileReplacement() {
  if (handle_ >= 0) {
    ::close(handle_);
  }
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
  }
}

bool FileReplacement::begin(const std::string& fileName) {
  if (!findTarget(fileName)) {
    return false;
  }
  struct stat old {};
  if (::stat(target_.c_str(), &old) != 0) {
    return errno == ENOENT && createTemporary() && createAnew();
  }
  // Renaming needs no right to write the file itself; what is write-protected stays so.
  return S_ISREG(old.st_mode) && ::faccessat(AT_FDCWD, target_.c_str(), W_OK, AT_EACCESS) == 0 &&
         createTemporary() && takeOver(old);
}

bool FileReplacement::findTarget(const std::string& fileName) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(fileName.c_str(), nullptr),
                                                             &std::free);
  if (resolved != nullptr) {
    target_ = resolved.get();
    return true;
  }
  struct stat link {};
  if (errno != ENOENT || ::lstat(fileName.c_str(), &link) == 0) {
    return false;  // a link that leads nowhere, or no way to tell
  }
  target_ = fileName;
  return true;
}

bool FileReplacement::createTemporary() {
  std::string name = target_ + ".XXXXXX";
  handle_ = ::mkostemp(name.data(), O_CLOEXEC);
  if (handle_ < 0) {
    return false;
  }
  temporary_ = name;
  return true;
}

bool FileReplacement::createAnew() {
  // The first one was made for this process alone. A new file may be what the file mode mask says,
  // and only the kernel applies that without changing it for other threads.
  ::close(handle_);
  ::unlink(temporary_.c_str());
  handle_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kModeOfNewFile);
  if (handle_ < 0) {
    temporary_.clear();  // another one's, if there is one
  }
  return handle_ >= 0;
}

bool FileReplacement::takeOver(const struct stat& old) {
  struct stat mine {};
  if (::fstat(handle_, &mine) != 0) {
    return false;
  }
  const bool sameOwner = mine.st_uid == old.st_uid && mine.st_gid == old.st_gid;
  return (sameOwner || ::fchown(handle_, old.st_uid, old.st_gid) == 0) &&
         ::fchmod(handle_, old.st_mode & kPermissionBits) == 0;
}

bool FileReplacement::commit() {
  if (handle_ < 0 || ::fsync(handle_) != 0 || ::rename(temporary_.c_str(), target_.c_str()) != 0) {
    return false;
  }
  temporary_.clear();
  syncDirectoryOf(target_);
  return true;
}

}  // namespace qov
