#include "endure/fault_proxy.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <qovpub/qov_long_socket.h>
#include <qovpub/qov_msg_head.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <random>
#include <stdexcept>
#include <utility>

namespace qov::endure {
namespace {

constexpr std::size_t kHead = sizeof(TLVMsgHeadV3);
constexpr int kNoLimit = -1;
/// For what takes next to no time.
constexpr int kGenerousMs = 30000;

template <class Field>
Field fieldOf(const std::vector<unsigned char>& message, std::size_t offset) {
  Field field;
  std::memcpy(&field, message.data() + offset, sizeof field);
  return field;
}

template <class Field>
void setField(std::vector<unsigned char>& message, std::size_t offset, Field field) {
  std::memcpy(message.data() + offset, &field, sizeof field);
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(std::string("the proxy cannot ") + what + ": " + std::strerror(errno));
}

/// A socket bound to `port` of this machine, or to a free one, together with others of this kind.
Handle boundSocket(std::uint16_t port) {
  Handle bound(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  const sockaddr_in address = loopback(port);
  if (::setsockopt(bound.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(bound.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail("bind a port");
  }
  return bound;
}

std::uint16_t portOf(const Handle& bound) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(bound.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    fail("learn its port");
  }
  return ntohs(address.sin_port);
}

Handle connectedSocket(std::uint16_t port) {
  Handle connected(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(port);
  const int on = 1;
  if (::connect(connected.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
          0 ||
      ::setsockopt(connected.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
    fail("connect");
  }
  return connected;
}

std::vector<unsigned char> randomBytes(std::size_t count, std::uint64_t seed) {
  std::minstd_rand random(static_cast<std::minstd_rand::result_type>(seed));
  std::vector<unsigned char> bytes(count);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(random()); });
  return bytes;
}

/// From `least` to `most`.
std::size_t drawn(std::uint64_t draw, std::size_t least, std::size_t most) {
  return least + draw % (most - least + 1);
}

void append(std::vector<unsigned char>& message, const std::vector<unsigned char>& more) {
  message.insert(message.end(), more.begin(), more.end());
}

/// `answer` with what the fault makes of its bytes.
std::vector<unsigned char> spoilt(std::vector<unsigned char> answer, const FaultProxy::Plan& plan,
                                  const std::vector<unsigned char>& former) {
  constexpr std::size_t kLength = offsetof(TLVMsgHeadV3, len_);
  constexpr std::size_t kSerial = offsetof(TLVMsgHeadV3, ser_);
  constexpr std::size_t kResult = offsetof(TLVMsgHeadV3, ret_);
  constexpr std::size_t kRecordLength = kHead + 8;
  constexpr std::size_t kFirstCell = kHead + 10;
  constexpr std::uint32_t kLongestBody = CQOVLongSocket::kMaxMessage - kHead;
  const std::uint64_t draw = plan.draw;
  const auto body = static_cast<std::uint32_t>(answer.size() - kHead);
  switch (plan.fault) {
    case Fault::kTooLong:
      setField(answer, kLength,
               static_cast<std::uint32_t>(drawn(draw, kLongestBody + 1, INT32_MAX)));
      break;
    case Fault::kLongLength:
      setField(answer, kLength, static_cast<std::uint32_t>(body + drawn(draw, 1, 1000)));
      break;
    case Fault::kShortLength:
      setField(answer, kLength, static_cast<std::uint32_t>(drawn(draw, 0, body - 1)));
      break;
    case Fault::kNegativeLength:
      setField(answer, kLength, static_cast<std::uint32_t>(draw) | 0x80000000U);
      break;
    case Fault::kResultOfLink:
      setField(answer, kResult, std::uint32_t{CQOVLongSocket::kSocketFailed});
      break;
    case Fault::kErrorResult:
      setField(answer, kResult, static_cast<std::uint32_t>(drawn(draw, 1, 1000000)));
      break;
    case Fault::kOldAnswer:
      return former;
    case Fault::kWrongSerial:
      setField(answer, kSerial,
               static_cast<std::uint16_t>(fieldOf<std::uint16_t>(answer, kSerial) ^
                                          drawn(draw, 1, UINT16_MAX)));
      break;
    case Fault::kWrongMagic:
      answer[drawn(draw, 0, 3)] ^= 0xFF;
      break;
    case Fault::kWrongVersion:
      answer[drawn(draw, 4, 7)] ^= 0xFF;
      break;
    case Fault::kWrongCellType:
      answer[kFirstCell] |= 0x0F;
      break;
    case Fault::kWrongRecordLength:
      setField(answer, kRecordLength, std::uint16_t{UINT16_MAX});
      break;
    case Fault::kRandomBody:
      answer.resize(kHead);
      append(answer, randomBytes(body, draw));
      break;
    case Fault::kDuplicateAnswer:
      append(answer, std::vector<unsigned char>(answer));
      break;
    case Fault::kTrailingBytes:
      append(answer, randomBytes(drawn(draw, 1, 200), draw));
      break;
    default:
      break;
  }
  return answer;
}

}  // namespace

FaultProxy::FaultProxy(std::uint16_t endpoint)
    : endpoint_port_(endpoint), holder_(boundSocket(0)), stop_(::eventfd(0, EFD_CLOEXEC)) {
  port_ = portOf(holder_);
  listener_ = listen(SOMAXCONN);
  thread_ = std::thread([this] { run(); });
}

FaultProxy::~FaultProxy() {
  setPresence(Presence::kEnding);
  const std::uint64_t one = 1;
  static_cast<void>(::write(stop_.get(), &one, sizeof one));
  thread_.join();
}

void FaultProxy::plan(Plan next) {
  const bool isOfConnections =
      next.fault == Fault::kCloseAccepted || next.fault == Fault::kResetAccepted ||
      next.fault == Fault::kBannerText || next.fault == Fault::kBannerMessage;
  const std::lock_guard<std::mutex> lock(mutex_);
  requests_ = isOfConnections ? 1 : next.times;
  accepts_ = isOfConnections ? next.times : 0;
  plan_ = std::move(next);
}

FaultProxy::Plan FaultProxy::takeForRequest() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (requests_ == 0) {
    return {};
  }
  if (plan_.after > 0) {
    --plan_.after;
    return {};
  }
  --requests_;
  return plan_;
}

FaultProxy::Plan FaultProxy::takeForConnection() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (requests_ > 0 || accepts_ == 0) {
    return {};
  }
  --accepts_;
  return plan_;
}

void FaultProxy::setPresence(Presence presence) {
  const std::lock_guard<std::mutex> lock(mutex_);
  // Once it ends it does nothing else.
  if (presence_ != Presence::kEnding) {
    presence_ = presence;
  }
  changed_.notify_all();
}

void FaultProxy::waitUntilAway() {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!changed_.wait_for(lock, std::chrono::milliseconds(kGenerousMs),
                         [this] { return presence_ == Presence::kAway; })) {
    throw std::runtime_error("the proxy does not go away");
  }
}

bool FaultProxy::isAway() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return presence_ == Presence::kAway;
}

void FaultProxy::comeBack() {
  setPresence(Presence::kReturning);
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return presence_ != Presence::kReturning; });
}

std::string FaultProxy::failure() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return failure_;
}

void FaultProxy::run() {
  try {
    while (accept()) {
      serve();
      link_.close();
    }
  } catch (const std::exception& error) {
    link_.close();
    listener_.close();
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      failure_ = error.what();
    }
    setPresence(Presence::kEnding);
  }
}

bool FaultProxy::accept() {
  if (!wait(listener_.get(), POLLIN, kNoLimit)) {
    return false;
  }
  link_ = Handle(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  sent_ = 0;
  const int on = 1;
  ::setsockopt(link_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return true;
}

void FaultProxy::serve() {
  const Plan welcome = takeForConnection();
  if (welcome.fault == Fault::kCloseAccepted) {
    return;
  }
  if (welcome.fault == Fault::kResetAccepted) {
    resetAtClose();
    return;
  }
  if (welcome.fault == Fault::kBannerMessage) {
    send(former_, 0, former_.size());
  } else if (welcome.fault == Fault::kBannerText) {
    const Message text = randomBytes(drawn(welcome.draw, 1, 200), welcome.draw);
    send(text, 0, text.size());
  }
  while (hasRequest() && exchange(takeForRequest())) {
  }
}

/// False when the connection is to be closed.
bool FaultProxy::exchange(const Plan& plan) {
  Message request;
  return failBeforeAsking(plan, request) && answer(ask(request, plan), plan);
}

/// True when the request has come whole and is to be answered.
bool FaultProxy::failBeforeAsking(const Plan& plan, Message& request) {
  switch (plan.fault) {
    case Fault::kCutAtRequest:
      return false;
    case Fault::kUnread:
      waitForEnd();
      return false;
    case Fault::kCutInRequest:
      // No request is as short.
      request.resize(drawn(plan.draw, 1, 40));
      if (receive(link_.get(), request.data(), request.size())) {
        connectToEndpoint();
        ::send(endpoint_.get(), request.data(), request.size(), MSG_NOSIGNAL);
        endpoint_.close();
      }
      return false;
    default:
      break;
  }
  if (!receiveMessage(link_.get(), request)) {
    return false;
  }
  switch (plan.fault) {
    case Fault::kCutAfterRequest:
      return false;
    case Fault::kResetAfterRequest:
      resetAtClose();
      return false;
    case Fault::kHalfClose:
      ::shutdown(link_.get(), SHUT_WR);
      waitForEnd();
      return false;
    case Fault::kInterrupt:
      plan.interrupt();
      waitForEnd();
      return false;
    case Fault::kSwallow:
      waitForEnd();
      return false;
    default:
      return true;
  }
}

FaultProxy::Message FaultProxy::ask(const Message& request, const Plan& plan) {
  connectToEndpoint();
  const auto pass = [&](std::size_t piece) {
    for (std::size_t begin = 0; begin < request.size(); begin += piece) {
      const std::size_t length = std::min(piece, request.size() - begin);
      if (::send(endpoint_.get(), request.data() + begin, length, MSG_NOSIGNAL) !=
          static_cast<ssize_t>(length)) {
        fail("send to the endpoint");
      }
    }
  };
  pass(plan.fault == Fault::kSplitRequest ? drawn(plan.draw, 1, 40) : request.size());
  if (plan.fault == Fault::kDuplicateRequest) {
    pass(request.size());
    answerOfEndpoint();
  }
  return answerOfEndpoint();
}

FaultProxy::Message FaultProxy::answerOfEndpoint() {
  Message answer;
  errno = 0;
  if (!receiveMessage(endpoint_.get(), answer)) {
    fail("receive from the endpoint");
  }
  return answer;
}

bool FaultProxy::answer(const Message& whole, const Plan& plan) {
  const Message answer = spoilt(whole, plan, former_.empty() ? whole : former_);
  former_ = whole;
  switch (plan.fault) {
    case Fault::kDelay:
      wait(-1, 0, static_cast<int>(drawn(plan.draw, 0, 20)));
      break;
    case Fault::kSplit:
      return sendInPieces(answer, drawn(plan.draw, 1, 1000), 0);
    case Fault::kByteForByte:
      return sendInPieces(answer, 1, 0);
    case Fault::kCrawl:
      return sendInPieces(answer, 1, static_cast<int>(drawn(plan.draw, 20, 40)));
    case Fault::kCutInHead:
    case Fault::kResetInHead:
    case Fault::kStallInHead:
    case Fault::kCutInBody:
    case Fault::kResetInBody:
    case Fault::kHalfCloseInBody:
    case Fault::kStallInBody:
      return answerInPart(answer, plan);
    case Fault::kLateAnswer:
      waitForEnd();
      send(answer, 0, answer.size());
      return false;
    default:
      break;
  }
  const bool isSent = send(answer, 0, answer.size());
  if (isSent) {
    noteAnswer();
  }
  switch (plan.fault) {
    case Fault::kResetBehind:
      resetAtClose();
      return false;
    case Fault::kHalfCloseBehind:
      ::shutdown(link_.get(), SHUT_WR);
      waitForEnd();
      return false;
    case Fault::kRefuse:
    case Fault::kQuiet:
      return beAway(plan.fault);
    case Fault::kCutBehind:
    case Fault::kCloseAccepted:
    case Fault::kResetAccepted:
    case Fault::kBannerText:
    case Fault::kBannerMessage:
      return false;
    default:
      return isSent;
  }
}

/// A link that has closed its connection meanwhile has not got the answer.
void FaultProxy::noteAnswer() {
  const auto now = std::chrono::steady_clock::now();
  if (!wait(link_.get(), POLLRDHUP, 0)) {
    answered_ = now;
  }
}

/// The beginning of `answer`, and then nothing more.
bool FaultProxy::answerInPart(const Message& answer, const Plan& plan) {
  const bool isInHead = plan.fault == Fault::kCutInHead || plan.fault == Fault::kResetInHead ||
                        plan.fault == Fault::kStallInHead;
  send(answer, 0,
       isInHead ? drawn(plan.draw, 0, kHead - 1) : drawn(plan.draw, kHead, answer.size() - 1));
  if (plan.fault == Fault::kResetInHead || plan.fault == Fault::kResetInBody) {
    resetAtClose();
  } else if (plan.fault == Fault::kHalfCloseInBody) {
    ::shutdown(link_.get(), SHUT_WR);
    waitForEnd();
  } else if (plan.fault == Fault::kStallInHead || plan.fault == Fault::kStallInBody) {
    waitForEnd();
  }
  return false;
}

/// Closes everything until comeBack(). A quiet port has a queue of connections that is full.
bool FaultProxy::beAway(Fault fault) {
  listener_.close();
  Handle queued;
  if (fault == Fault::kQuiet) {
    listener_ = listen(0);
    queued = connectedSocket(port_);
  }
  link_.close();
  setPresence(Presence::kAway);
  {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return presence_ != Presence::kAway; });
  }
  listener_.close();
  listener_ = listen(SOMAXCONN);
  setPresence(Presence::kThere);
  return false;
}

void FaultProxy::connectToEndpoint() {
  if (endpoint_.get() < 0) {
    endpoint_ = connectedSocket(endpoint_port_);
  }
}

Handle FaultProxy::listen(int backlog) const {
  Handle listener = boundSocket(port_);
  if (::listen(listener.get(), backlog) != 0) {
    fail("listen");
  }
  return listener;
}

/// Waits for the first byte of a request; false when the link closes the connection instead.
bool FaultProxy::hasRequest() const {
  unsigned char first = 0;
  return wait(link_.get(), POLLIN, kNoLimit) && ::recv(link_.get(), &first, 1, MSG_PEEK) == 1;
}

/// Until the link closes the connection.
void FaultProxy::waitForEnd() const {
  wait(link_.get(), POLLRDHUP, kNoLimit);
}

/// False when the time is over, or the thread is to end.
bool FaultProxy::wait(int descriptor, short events, int milliseconds) const {
  pollfd entries[] = {{descriptor, events, 0}, {stop_.get(), POLLIN, 0}};
  return ::poll(entries, 2, milliseconds) > 0 && entries[1].revents == 0;
}

bool FaultProxy::receive(int from, unsigned char* to, std::size_t length) const {
  while (length > 0) {
    const ssize_t received = wait(from, POLLIN, kGenerousMs) ? ::recv(from, to, length, 0) : -1;
    if (received <= 0) {
      return false;
    }
    to += received;
    length -= static_cast<std::size_t>(received);
  }
  return true;
}

bool FaultProxy::receiveMessage(int from, Message& message) const {
  message.resize(kHead);
  if (!receive(from, message.data(), kHead)) {
    return false;
  }
  message.resize(kHead + fieldOf<std::uint32_t>(message, offsetof(TLVMsgHeadV3, len_)));
  return receive(from, message.data() + kHead, message.size() - kHead);
}

/// To the link, whose socket has room for all.
bool FaultProxy::send(const Message& bytes, std::size_t begin, std::size_t end) {
  sent_ += end - begin;
  return begin == end || ::send(link_.get(), bytes.data() + begin, end - begin, MSG_NOSIGNAL) ==
                             static_cast<ssize_t>(end - begin);
}

/// With `pause` milliseconds behind each piece.
bool FaultProxy::sendInPieces(const Message& bytes, std::size_t longest, int pause) {
  for (std::size_t begin = 0; begin < bytes.size(); begin += longest) {
    if (!send(bytes, begin, std::min(begin + longest, bytes.size()))) {
      return false;
    }
    if (pause > 0) {
      wait(-1, 0, pause);
    }
  }
  return true;
}

void FaultProxy::resetAtClose() const {
  const linger none{1, 0};
  ::setsockopt(link_.get(), SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

}  // namespace qov::endure
