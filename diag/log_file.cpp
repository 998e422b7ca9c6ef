#include "diag/log_file.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace qov {

namespace {

/// Daemonising sets the process's file mode mask to 0, so this is all that protects the file.
constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP;

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

/// Does not wait for the reader of a pipe: a pipe without one cannot be opened.
int openForAppending(const std::string& path) {
  const int fd = ::open(path.c_str(),
                        O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, kMode);
  if (fd >= 0) {
    static_cast<void>(::fcntl(fd, F_SETFL, O_APPEND));
  }
  return fd;
}

/// A file that an earlier version left behind may be open to every writer.
void closeToOthers(int fd, const struct stat& status) {
  if (S_ISREG(status.st_mode) && (status.st_mode & S_IWOTH) != 0) {
    constexpr mode_t kPermissions = 07777;
    static_cast<void>(::fchmod(fd, status.st_mode & kPermissions & ~mode_t{S_IWOTH}));
  }
}

/// A directory that was away for a moment may have hidden a file that is in the way.
bool renameFile(const std::string& from, const std::string& to, bool mayReplace) {
  if (!mayReplace) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
      return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {  // what file systems say that cannot tell
      return false;
    }
  }
  return std::rename(from.c_str(), to.c_str()) == 0;
}

/// Writes all of `text` unless that fails (a full disk); returns how many bytes it wrote.
size_t writeAll(int fd, std::string_view text) {
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t result = ::write(fd, text.data() + written, text.size() - written);
    if (result > 0) {
      written += static_cast<size_t>(result);
    } else if (result == 0 || errno != EINTR) {
      break;
    }
  }
  return written;
}

}  // namespace

LogFile::~LogFile() {
  close();
}

bool LogFile::open(const std::string& path) {
  if (path != path_) {
    std::string next(path);
    close();
    path_.swap(next);
  }
  lastLook_ = kNever;
  return begin(nullptr);
}

void LogFile::setOwner(uid_t user, gid_t group) {
  hasOwner_ = true;
  user_ = user;
  group_ = group;
}

/// Opens path_ in place of the file so far, which stays open when that fails.
bool LogFile::begin(const struct stat* predecessor) {
  const bool isNew = !exists(path_);
  forgetLost();
  const int fd = openForAppending(path_);
  if (fd < 0) {
    return false;
  }
  struct stat own {};
  if (::fstat(fd, &own) != 0) {
    ::close(fd);
    return false;
  }
  close();
  fd_ = fd;
  device_ = own.st_dev;
  inode_ = own.st_ino;
  isShared_ = false;
  closeToOthers(fd_, own);
  if (predecessor != nullptr) {
    [[maybe_unused]] const int given = ::fchown(fd_, predecessor->st_uid, predecessor->st_gid);
  } else if (isNew && hasOwner_) {
    [[maybe_unused]] const int given = ::fchown(fd_, user_, group_);
  }
  return true;
}

/// False also when someone has closed our descriptor, which its number may outlive.
bool LogFile::statOwn(struct stat& own) const {
  return fd_ >= 0 && ::fstat(fd_, &own) == 0 && own.st_dev == device_ && own.st_ino == inode_;
}

/// A number that is no longer ours is free for the next descriptor, which must not be taken for the
/// former one.
void LogFile::forgetLost() {
  struct stat own {};
  if (!statOwn(own)) {
    fd_ = -1;
  }
}

/// Looks once a second whether descriptor and path still belong together. To look before every
/// record would double its cost: the kernel keeps finer times for a file that is asked about
/// between its changes.
bool LogFile::isReady() {
  const time_t now = time(nullptr);
  if (fd_ >= 0 && now == lastLook_) {
    return true;
  }
  const bool isThere = follow();
  lastLook_ = isThere ? now : kNever;  // or the next record would trust what is gone
  return isThere;
}

void LogFile::openAnew() {
  isShared_ = fd_ >= 0;
  lastLook_ = kNever;
}

/// Opens path_ if descriptor and path do not belong together, or the descriptor is not ours alone.
bool LogFile::follow() {
  struct stat own {};
  if (!statOwn(own)) {
    return begin(nullptr);
  }
  if (!isShared_ && !isMoved(own)) {
    return true;
  }
  const bool isDeleted = own.st_nlink == 0;
  return begin(&own) || !isDeleted;  // rather in a file of another name than nowhere
}

std::string LogFile::otherPlace() const {
  struct stat own {};
  pollfd room{fd_, POLLOUT, 0};
  const bool takesRecords = statOwn(own) && own.st_nlink > 0 && ::poll(&room, 1, 0) >= 0 &&
                            (room.revents & POLLERR) == 0;  // a pipe without a reader has it
  std::error_code error;
  return takesRecords
             ? std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd_), error).string()
             : std::string();
}

bool LogFile::write(std::string_view record) {
  if (!isReady()) {
    return false;
  }
  if (append(record)) {
    return true;
  }
  struct stat own {};
  const bool isLost = !statOwn(own);  // someone has closed our descriptor since the last look
  return isLost && begin(nullptr) && append(record);
}

bool LogFile::append(std::string_view record) {
  const size_t written = writeAll(fd_, record);
  if (written != 0 && written < record.size()) {
    takeBack(written);
  }
  return written == record.size();
}

/// Removes the torn beginning of a record, unless someone else has written behind it.
void LogFile::takeBack(size_t written) const {
  const off_t end = ::lseek(fd_, 0, SEEK_CUR);  // appending has moved it behind what we wrote
  struct stat own {};
  if (::fstat(fd_, &own) == 0 && S_ISREG(own.st_mode) && own.st_size == end) {
    [[maybe_unused]] const int cut = ::ftruncate(fd_, end - static_cast<off_t>(written));
  }
}

bool LogFile::check(long long maxBytes, int predecessors) {
  lastLook_ = kNever;  // whatever comes of this, the next record sees for itself
  struct stat own {};
  if (!statOwn(own)) {
    begin(nullptr);
    return true;
  }
  const bool isTooLarge = maxBytes > 0 && own.st_size > maxBytes;
  if (!isMoved(own) && !isTooLarge) {
    return true;
  }
  if (!isMoved(own) && !putAside(predecessors)) {
    return false;
  }
  begin(&own);
  return true;
}

bool LogFile::isMoved(const struct stat& own) const {
  struct stat there {};
  return ::stat(path_.c_str(), &there) != 0 || there.st_dev != own.st_dev ||
         there.st_ino != own.st_ino;
}

/// Frees path_ for a new file. False when that is not possible.
bool LogFile::putAside(int predecessors) const {
  if (predecessors < 1) {
    return ::unlink(path_.c_str()) == 0;
  }
  int oldest = 1;
  while (oldest < predecessors && exists(numbered(oldest))) {
    ++oldest;
  }
  for (int number = oldest; number > 1; --number) {
    if (!renameFile(numbered(number - 1), numbered(number), number == predecessors)) {
      return false;
    }
  }
  return renameFile(path_, numbered(1), predecessors == 1);
}

void LogFile::removeFrom(int number) const {
  if (path_.empty()) {
    return;
  }
  struct stat status {};
  for (std::string file = numbered(number); ::lstat(file.c_str(), &status) == 0 &&
                                            S_ISREG(status.st_mode) &&
                                            ::unlink(file.c_str()) == 0;) {
    file = numbered(++number);
  }
}

void LogFile::close() {
  forgetLost();
  if (fd_ >= 0) {
    ::close(fd_);
  }
  fd_ = -1;
}

}  // namespace qov
