#include "config/ini/file_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "config/ini/file_overwrite.h"

namespace qov {
namespace {

constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kModeOfNewFile = 0644;

/// The file that is to take another one's place, removed unless it did.
class Replacement {
 public:
  explicit Replacement(const std::string& target) : target_(target) {}
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  /// Creates it in the place of `old`, or of no file (null).
  bool begin(const struct stat* old);
  /// Brings `content` to the disk.
  bool fill(const std::string& content) const {
    return writeFromBeginning(handle_, content) && ::fsync(handle_) == 0;
  }
  bool takeThePlace();

 private:
  bool createTemporary();
  bool createAnew();
  bool takeOver(const struct stat& old) const;

  const std::string target_;
  std::string temporary_;  // empty while there is none
  int handle_ = -1;
};

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

Replacement::~Replacement() {
  const int callersErrno = errno;
  if (handle_ >= 0) {
    ::close(handle_);
  }
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
  }
  errno = callersErrno;
}

bool Replacement::begin(const struct stat* old) {
  return createTemporary() && (old != nullptr ? takeOver(*old) : createAnew());
}

bool Replacement::createTemporary() {
  std::string name = target_ + ".XXXXXX";
  handle_ = ::mkostemp(name.data(), O_CLOEXEC);
  if (handle_ < 0) {
    return false;
  }
  temporary_ = name;
  return true;
}

bool Replacement::createAnew() {
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

bool Replacement::takeOver(const struct stat& old) const {
  struct stat mine {};
  if (::fstat(handle_, &mine) != 0) {
    return false;
  }
  const bool sameOwner = mine.st_uid == old.st_uid && mine.st_gid == old.st_gid;
  if ((sameOwner || ::fchown(handle_, old.st_uid, old.st_gid) == 0) &&
      ::fchmod(handle_, old.st_mode & kPermissionBits) == 0) {
    return true;
  }
  errno = EPERM;  // every reason comes to this: EINVAL, say, is an owner whom a container lacks
  return false;
}

bool Replacement::takeThePlace() {
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
    return false;
  }
  temporary_.clear();
  syncDirectoryOf(target_);
  return true;
}

bool findTarget(const std::string& fileName, std::string& target) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(fileName.c_str(), nullptr),
                                                             &std::free);
  if (resolved != nullptr) {
    target = resolved.get();
    return true;
  }
  struct stat link {};
  if (errno != ENOENT || ::lstat(fileName.c_str(), &link) == 0) {
    return false;  // a link that leads nowhere, or no way to tell
  }
  target = fileName;
  return true;
}

/// Renaming needs no right to write the file itself; what is write-protected stays so.
bool mayBeChanged(const std::string& target, const struct stat& status) {
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return false;
  }
  return ::faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) == 0;
}

/// Whether `reason` says that no file can be put in that place, whatever it holds.
bool isNoPlaceForAnother(int reason) {
  return reason == EACCES || reason == EPERM || reason == EROFS || reason == ENAMETOOLONG ||
         reason == EBUSY || reason == EXDEV;
}

bool replaceOrOverwrite(const std::string& target, const struct stat& old,
                        const std::string& content) {
  Replacement file(target);
  bool isReady = file.begin(&old);
  if (isReady) {
    if (!file.fill(content)) {
      return false;
    }
    isReady = file.takeThePlace();
  }
  return isReady || (isNoPlaceForAnother(errno) && overwriteFile(target, content));
}

}  // namespace

bool replaceFile(const std::string& fileName, const std::string& content) {
  std::string target;
  if (!findTarget(fileName, target)) {
    return false;
  }
  struct stat old {};
  if (::stat(target.c_str(), &old) == 0) {
    return mayBeChanged(target, old) && replaceOrOverwrite(target, old, content);
  }
  if (errno != ENOENT) {
    return false;
  }
  Replacement file(target);
  return file.begin(nullptr) && file.fill(content) && file.takeThePlace();
}

}  // namespace qov
