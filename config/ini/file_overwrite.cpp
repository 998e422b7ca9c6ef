#include "config/ini/file_overwrite.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

namespace qov {
namespace {

constexpr std::chrono::seconds kLongestWait(5);
constexpr std::chrono::milliseconds kBetweenLooks(10);

/// True also where the file system knows no locks. There is no call that waits for a lock up to a
/// limit, so this asks again and again.
bool lock(int handle) {
  const auto giveUp = std::chrono::steady_clock::now() + kLongestWait;
  while (::flock(handle, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return true;
    }
    if (std::chrono::steady_clock::now() >= giveUp) {
      errno = EWOULDBLOCK;
      return false;
    }
    std::this_thread::sleep_for(kBetweenLooks);
  }
  return true;
}

/// An open file, locked for one writer at a time where the file system can do that.
class LockedFile {
 public:
  explicit LockedFile(const std::string& path)
      : number_(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)),
        isOurs_(number_ >= 0 && lock(number_)) {}
  ~LockedFile() {
    const int callersErrno = errno;
    if (isOurs_) {
      ::flock(number_, LOCK_UN);  // also for a child that another thread has forked meanwhile
    }
    if (number_ >= 0) {
      ::close(number_);
    }
    errno = callersErrno;
  }
  LockedFile(const LockedFile&) = delete;
  LockedFile& operator=(const LockedFile&) = delete;

  /// False with errno when it cannot be opened, or another one keeps it locked.
  bool isOurs() const { return isOurs_; }
  int number() const { return number_; }

 private:
  const int number_;
  const bool isOurs_;
};

bool readAll(int handle, std::string& content) {
  std::vector<char> part(65536);
  ssize_t size = 0;
  do {
    size = ::pread(handle, part.data(), part.size(), static_cast<off_t>(content.size()));
    if (size > 0) {
      content.append(part.data(), static_cast<std::size_t>(size));
    }
  } while (size > 0 || (size < 0 && errno == EINTR));
  return size == 0;
}

/// True also where the file system knows no reservations.
bool reserve(int handle, std::size_t size) {
  return size == 0 || ::fallocate(handle, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0 ||
         (errno != ENOSPC && errno != EDQUOT && errno != EIO);
}

bool makeContent(int handle, const std::string& content) {
  return writeFromBeginning(handle, content) &&
         ::ftruncate(handle, static_cast<off_t>(content.size())) == 0 && ::fsync(handle) == 0;
}

}  // namespace

bool writeFromBeginning(int handle, const std::string& content) {
  std::size_t written = 0;
  while (written < content.size()) {
    const ssize_t size = ::pwrite(handle, content.data() + written, content.size() - written,
                                  static_cast<off_t>(written));
    if (size > 0) {
      written += static_cast<std::size_t>(size);
    } else if (size == 0 || errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool overwriteFile(const std::string& path, const std::string& content) {
  const LockedFile file(path);
  std::string former;
  if (!file.isOurs() || !readAll(file.number(), former) ||
      !reserve(file.number(), content.size())) {
    return false;
  }
  if (makeContent(file.number(), content)) {
    return true;
  }
  const int reason = errno;
  static_cast<void>(makeContent(file.number(), former));  // the caller learns of the first failure
  errno = reason;
  return false;
}

}  // namespace qov
