#include "modules/status/listening_socket.h"

#include <fcntl.h>
#include <pthread.h>
#include <qovpub/qov_exception.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace qov::status {
namespace {

constexpr int kBacklog = 16;

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

}  // namespace

ListeningSocket::ListeningSocket(const Settings& settings)
    : path_(settings.socket), socket_(makeSocket()) {
  check(socket_.get() >= 0 && registered == 0);
  // Of its own, so that two agents that start at once do not take one name.
  const std::string fresh = path_ + "." + std::to_string(::getpid());
  if (fresh.size() >= sizeof(sockaddr_un::sun_path)) {
    fail("the path is longer than a socket's may be");
  }
  makeFolder(path_.substr(0, path_.rfind('/')));
  removeStale();
  ::unlink(fresh.c_str());
  try {
    bindAs(fresh, settings);
    // Not rename(), which would take the place of an agent's that has come first meanwhile.
    check(::link(fresh.c_str(), path_.c_str()) == 0);
    listening = socket_.get();
  } catch (...) {
    ::unlink(fresh.c_str());
    throw;
  }
  ::unlink(fresh.c_str());
}

ListeningSocket::~ListeningSocket() {
  listening = -1;
  struct stat file {};
  if (::lstat(path_.c_str(), &file) == 0 && file.st_dev == device_ && file.st_ino == inode_) {
    ::unlink(path_.c_str());
  }
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

void ListeningSocket::removeStale() const {
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
  check(::unlink(path_.c_str()) == 0 || errno == ENOENT);
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
