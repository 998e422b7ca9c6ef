#include "tests/link/fuzz/played_endpoint.h"

#include <qovpub/qov_long_socket.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <utility>

#include "tests/support/fuzz.h"

namespace qov::test {
namespace {

// Of a step.
constexpr unsigned int kWhatBytes = 3;  ///< a message of fitting LEN, a message, or just bytes
constexpr unsigned int kFittingMessage = 0;
constexpr unsigned int kMessage = 1;
constexpr unsigned int kThen = 3 << 2;
constexpr unsigned int kMoreLater = 1 << 2;
constexpr unsigned int kWaits = 2 << 2;  ///< for the next request
constexpr unsigned int kCloses = 3 << 2;
constexpr unsigned int kResets = 1 << 4;  ///< in place of closing
constexpr unsigned int kCuts = 1 << 5;    ///< the request's second half is not taken
constexpr unsigned int kRefusesRequest = 1 << 6;
constexpr unsigned int kRefusesConnection = 1 << 7;
// Of the same bits, when a connection begins.
constexpr unsigned int kConnectsLater = kResets;
constexpr unsigned int kStaysConnecting = kCuts;  ///< in place of refusing it
// And when a request that is not the connection's first one is sent.
constexpr unsigned int kHasNoRoom = kRefusesConnection;  ///< at first; kRefusesRequest: for ever

constexpr std::size_t kHeadSize = sizeof(TLVMsgHeadV3);

PlayedEndpoint* playing = nullptr;
std::int64_t clockMilliseconds = 1000;

/// With a serial number that counts from that of the request.
void makeAnswer(std::string& message, const std::string& request, bool fits) {
  if (message.size() < kHeadSize) {
    return;
  }
  constexpr std::size_t kSerialAt = offsetof(TLVMsgHeadV3, ser_);
  std::uint16_t serial;
  std::uint16_t asked;
  std::memcpy(&serial, &message[kSerialAt], sizeof serial);
  std::memcpy(&asked, &request[kSerialAt], sizeof asked);
  serial = static_cast<std::uint16_t>(serial + asked);
  std::memcpy(&message[kSerialAt], &serial, sizeof serial);
  if (fits) {
    const auto length = static_cast<std::uint32_t>(message.size() - kHeadSize);
    std::memcpy(&message[offsetof(TLVMsgHeadV3, len_)], &length, sizeof length);
  }
}

int failed(int error) {
  errno = error;
  return -1;
}

}  // namespace

PlayedEndpoint::PlayedEndpoint(std::string script) : script_(std::move(script)) {
  playing = this;
}

PlayedEndpoint::~PlayedEndpoint() {
  playing = nullptr;
}

unsigned int PlayedEndpoint::nextWhat() const {
  return isOver() ? kWaits : static_cast<unsigned char>(script_.front());
}

PlayedEndpoint::Step PlayedEndpoint::takeStep() {
  Step step{nextWhat(), {}};
  if (script_.size() > 2) {
    step.bytes = script_.substr(2, static_cast<unsigned char>(script_[1]));
  }
  script_.erase(0, 2 + step.bytes.size());
  return step;
}

int PlayedEndpoint::connect() {
  sent_.clear();
  cuts_.clear();
  arrived_ = received_ = read_ = 0;
  end_ = -1;
  const unsigned int what = nextWhat();
  const bool isRefused = (what & kRefusesConnection) != 0;
  isConnecting_ = (what & kConnectsLater) != 0;
  connectError_ = isRefused ? ECONNREFUSED : 0;
  isFull_ = false;
  isStuck_ = isRefused && (what & kStaysConnecting) != 0;
  if (isRefused) {
    takeStep();
  }
  events_.push_back({isRefused ? LinkEvent::Kind::kRefused : LinkEvent::Kind::kConnected});
  const int error = isConnecting_ ? EINPROGRESS : connectError_;
  return error == 0 ? 0 : failed(error);
}

int PlayedEndpoint::connectError() {
  require(isConnecting_ && !isStuck_, "only a connection that has ended is asked how");
  isConnecting_ = false;
  return connectError_;
}

ssize_t PlayedEndpoint::send(const void* data, std::size_t length) {
  require(!isConnecting_ && !isStuck_, "nothing is sent where it cannot be");
  if (end_ <= 0 && (nextWhat() & kHasNoRoom) != 0 && !std::exchange(isFull_, true)) {
    isStuck_ = (nextWhat() & kRefusesRequest) != 0;
    if (isStuck_) {
      takeStep();
      events_.push_back({LinkEvent::Kind::kNotSent});
    }
    return failed(EAGAIN);
  }
  isFull_ = false;
  if (end_ > 0 || (nextWhat() & kRefusesRequest) != 0) {
    takeStep();
    events_.push_back({LinkEvent::Kind::kNotSent});
    return failed(EPIPE);
  }
  const std::string request(static_cast<const char*>(data), length);
  const bool isCut = (nextWhat() & kCuts) != 0;
  if (end_ < 0) {
    playSteps(request);
  }
  events_.push_back(
      {isCut ? LinkEvent::Kind::kCut : LinkEvent::Kind::kSent, request, takeMessage()});
  return static_cast<ssize_t>(isCut ? length / 2 : length);
}

/// Up to the next request, or the end of the connection.
void PlayedEndpoint::playSteps(const std::string& request) {
  for (unsigned int then = 0; then != kWaits && then != kCloses;) {
    Step step = takeStep();
    if (const unsigned int kind = step.what & kWhatBytes; kind <= kMessage) {
      makeAnswer(step.bytes, request, kind == kFittingMessage);
    }
    sent_ += step.bytes;
    then = step.what & kThen;
    if (then == kMoreLater) {
      cuts_.push_back(sent_.size());
    } else if (then == kCloses) {
      end_ = (step.what & kResets) != 0 ? ECONNRESET : 0;
    }
  }
}

std::optional<std::string> PlayedEndpoint::takeMessage() {
  const std::size_t left = sent_.size() - read_;
  if (left < kHeadSize) {
    return std::nullopt;
  }
  std::int32_t length;
  std::memcpy(&length, &sent_[read_ + offsetof(TLVMsgHeadV3, len_)], sizeof length);
  const std::size_t size = kHeadSize + static_cast<std::size_t>(std::max(length, 0));
  if (size > CQOVLongSocket::kMaxMessage || size > left) {
    return std::nullopt;
  }
  read_ += size;
  return sent_.substr(read_ - size, size);
}

/// False if nothing more comes.
bool PlayedEndpoint::letArrive() {
  if (arrived_ == received_) {
    const auto cut = std::upper_bound(cuts_.begin(), cuts_.end(), arrived_);
    arrived_ = cut == cuts_.end() ? sent_.size() : *cut;
  }
  return arrived_ > received_ || end_ >= 0;
}

ssize_t PlayedEndpoint::receive(void* to, std::size_t length, bool maySleep) {
  if (maySleep && !letArrive()) {
    clockMilliseconds += 30000;
    return failed(EAGAIN);
  }
  if (const std::size_t count = std::min(length, arrived_ - received_); count > 0) {
    std::memcpy(to, &sent_[received_], count);
    received_ += count;
    return static_cast<ssize_t>(count);
  }
  if (received_ < sent_.size() || end_ < 0) {
    return failed(EAGAIN);
  }
  return end_ == 0 ? 0 : failed(end_);
}

int PlayedEndpoint::poll(pollfd& entry, int timeout) {
  require(timeout >= 0, "a wait has an end");
  const bool isForRoom = isConnecting_ || isFull_;
  require(entry.events == (isForRoom ? POLLOUT : POLLIN), "what is waited for is what is missing");
  if (isForRoom ? !isStuck_ : letArrive()) {
    entry.revents = isForRoom ? POLLOUT : POLLIN;
    return 1;
  }
  clockMilliseconds += timeout;
  return 0;
}

}  // namespace qov::test

// In place of the system's, for the libraries, too.

using qov::test::playing;

extern "C" int connect(int, const sockaddr*, socklen_t) {
  return playing != nullptr ? playing->connect() : qov::test::failed(ECONNREFUSED);
}

extern "C" int getsockopt(int socket, int level, int name, void* value, socklen_t* size) noexcept {
  if (playing == nullptr || level != SOL_SOCKET || name != SO_ERROR) {
    return static_cast<int>(::syscall(SYS_getsockopt, socket, level, name, value, size));
  }
  *static_cast<int*>(value) = playing->connectError();
  return 0;
}

extern "C" ssize_t send(int, const void* data, std::size_t length, int) {
  return playing->send(data, length);
}

extern "C" ssize_t recv(int, void* to, std::size_t length, int flags) {
  return playing->receive(to, length, (flags & MSG_DONTWAIT) == 0);
}

/// <poll.h> says of poll() that it does not read what it is given.
extern "C" int playedPoll(pollfd* entries, nfds_t, int timeout) __asm__("poll");
extern "C" int playedPoll(pollfd* entries, nfds_t, int timeout) {
  return playing->poll(*entries, timeout);
}

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (clock != CLOCK_MONOTONIC_COARSE) {
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
  }
  using qov::test::clockMilliseconds;
  now->tv_sec = clockMilliseconds / 1000;
  now->tv_nsec = clockMilliseconds % 1000 * 1000000;
  return 0;
}
