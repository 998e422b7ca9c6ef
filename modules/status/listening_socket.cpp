#include "modules/status/listening_socket.h"

#include <fcntl.h>
#include <pthread.h>
#include <qovpub/qov_exception.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace qov::status {
namespace {

constexpr int kBacklog = 16;

/// Behind the path: the socket's file until it listens, and the file that one process locks to make
/// the socket.
constexpr std::string_view kFresh = ".new";
constexpr std::string_view kLock = ".lock";

/// The descriptor of the socket that listens; -1 for none.
std::atomic<int> listening{-1};

/// Who has it listens. A helper that another module forks may outlive this agent, and must not keep
/// the next one from it.
void closeInChild() {
  if (const int inherited = listening.exchange(-1); inherited >= 0) {
    ::close(inherited);
  }
}

const int registered = ::pthread_atfork(nullptr, nullptr, &closeInChild);

int makeSocket() {
  return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

/// The path fits.
sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

bool isListenedAt(const std::string& path) {
  const Descriptor probe(makeSocket());
  const sockaddr_un address = addressOf(path);
  if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return true;
  }
  return errno != ECONNREFUSED && errno != ENOENT;
}

/// The name of a file that is gone with this object.
class TemporaryName {
 public:
  explicit TemporaryName(std::string path) : path_(std::move(path)) {}
  ~TemporaryName() { ::unlink(path_.c_str()); }
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;

  const std::string& path() const { return path_; }

 private:
  const std::string path_;
};

}  // namespace

ListeningSocket::ListeningSocket(const Settings& settings)
    : path_(settings.socket), socket_(makeSocket()) {
  check(socket_.get() >= 0 && registered == 0);
  if (path_.size() + kFresh.size() >= sizeof(sockaddr_un::sun_path)) {
    fail("the path is longer than a socket's may be");
  }
  makeFolder(path_.substr(0, path_.rfind('/')));
  const Descriptor lock = lockFile(withEnding(kLock));
  // The lock is held until both names are gone.
  const TemporaryName lockName(withEnding(kLock));
  const TemporaryName fresh(withEnding(kFresh));
  refuseOther();
  ::unlink(fresh.path().c_str());
  bindAs(fresh.path(), settings);
  check(::rename(fresh.path().c_str(), path_.c_str()) == 0);
  listening = socket_.get();
}

ListeningSocket::~ListeningSocket() {
  listening = -1;
  struct stat file {};
  if (::lstat(path_.c_str(), &file) == 0 && file.st_dev == device_ && file.st_ino == inode_) {
    ::unlink(path_.c_str());
  }
}

std::string ListeningSocket::withEnding(std::string_view ending) const {
  return path_ + std::string(ending);
}

void ListeningSocket::fail(const std::string& why) const {
  throw CQOV_Exception("Failed to make the status socket: " + path_ + ": " + why);
}

void ListeningSocket::check(bool done) const {
  if (!done) {
    fail(std::generic_category().message(errno));
  }
}

void ListeningSocket::makeFolder(const std::string& folder) const {
  constexpr mode_t kForAll = 0755;
  if (!folder.empty() && ::mkdir(folder.c_str(), kForAll) == 0) {
    // Whatever the file mode mask says.
    check(::chmod(folder.c_str(), kForAll) == 0);
  } else {
    check(folder.empty() || errno == EEXIST);
  }
}

Descriptor ListeningSocket::lockFile(const std::string& file) const {
  constexpr mode_t kForOwner = 0600;
  Descriptor lock(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kForOwner));
  check(lock.get() >= 0);
  const bool isMine = ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
  check(isMine || errno == EWOULDBLOCK);
  struct stat now {};
  check(::fstat(lock.get(), &now) == 0);
  // Without a name: it was another's, who has just finished.
  if (!isMine || now.st_nlink == 0) {
    fail("another process makes it at this moment, and has locked " + file);
  }
  return lock;
}

void ListeningSocket::refuseOther() const {
  struct stat file {};
  if (::lstat(path_.c_str(), &file) != 0) {
    return;
  }
  if (!S_ISSOCK(file.st_mode)) {
    fail("there is a file of that name that is no socket");
  }
  if (isListenedAt(path_)) {
    fail("another process listens there");
  }
}

void ListeningSocket::bindAs(const std::string& file, const Settings& settings) {
  constexpr uid_t kSame = static_cast<uid_t>(-1);
  const sockaddr_un address = addressOf(file);
  check(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
  // In this order: a change of the owner may change the mode. Neither follows a link that somebody
  // has put there.
  check((!settings.owner && !settings.group) ||
        ::lchown(file.c_str(), settings.owner.value_or(kSame), settings.group.value_or(kSame)) ==
            0);
  check(::fchmodat(AT_FDCWD, file.c_str(), settings.mode, AT_SYMLINK_NOFOLLOW) == 0);
  struct stat made {};
  check(::lstat(file.c_str(), &made) == 0 && ::listen(socket_.get(), kBacklog) == 0);
  device_ = made.st_dev;
  inode_ = made.st_ino;
}

}  // namespace qov::status
