#include "tools/qov-endpoint/connection.h"

#include <ace/Reactor.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/qov-endpoint/framing.h"

namespace qov::endpoint {
namespace {

/// How long a client may take to close its side. Without this wait, bytes of its that nobody has
/// read would make the kernel reset the connection, and it might lose the end of the answer.
constexpr std::chrono::milliseconds kLinger{10000};

/// What a connection waits for in a state; with NULL_MASK for a timer only.
ACE_Reactor_Mask maskOf(Connection::State state) {
  switch (state) {
    case Connection::State::kReading:
    case Connection::State::kLingering:
      return ACE_Event_Handler::READ_MASK;
    // Nothing is answered before there is room for the answer anyway. A timer would not do: the
    // reactor serves a timer that is due before all that its descriptors have.
    case Connection::State::kYielding:
    case Connection::State::kSending:
      return ACE_Event_Handler::WRITE_MASK;
    default:
      return ACE_Event_Handler::NULL_MASK;
  }
}

bool mayPass(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

Connection::Connection(int socket, std::uint64_t ordinal, ConnectionOwner& owner,
                       ACE_Reactor& reactor)
    : ACE_Event_Handler(&reactor),
      socket_(socket),
      ordinal_(ordinal),
      owner_(owner),
      walks_(owner.tables()) {}

Connection::~Connection() {
  reactor()->cancel_timer(this);
  watch(NULL_MASK);
  ::close(socket_);
}

void Connection::open() {
  deliver(owner_.exchanges().accept(ordinal_));
}

void Connection::finish() {
  finishing_ = true;
  if (state_ != State::kDelaying && state_ != State::kSending) {
    close();
  }
}

int Connection::handle_input(ACE_HANDLE) {
  if (state_ == State::kLingering) {
    if (!receive()) {
      close();
    }
    input_.clear();
  } else if (state_ == State::kReading) {
    if (receive()) {
      answerNext();
    } else {
      endInput();
    }
  }
  owner_.counts().save();
  return 0;
}

int Connection::handle_output(ACE_HANDLE) {
  if (state_ == State::kSending) {
    send();
  } else if (state_ == State::kYielding) {
    answerNext();
    owner_.counts().save();
  }
  return 0;
}

int Connection::handle_timeout(const ACE_Time_Value&, const void*) {
  if (state_ == State::kDelaying) {
    send();
  } else if (state_ == State::kLingering) {
    close();
  }
  return 0;
}

int Connection::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
  watched_ = NULL_MASK;
  close();
  return 0;
}

/// Takes what the socket has, up to a limit. False when the client sends no more.
bool Connection::receive() {
  std::array<char, 1 << 16> bytes;
  const ssize_t received = ::recv(socket_, bytes.data(), bytes.size(), 0);
  if (received > 0) {
    input_.append(bytes.data(), static_cast<std::size_t>(received));
    return true;
  }
  return received < 0 && mayPass(errno);
}

/// A client may close its sending side behind its last request and still wait for the answer.
void Connection::endInput() {
  if (!input_.empty()) {
    owner_.log().event("connection " + std::to_string(ordinal_) + ": ended within a request");
  }
  close();
}

/// Answers one request; those behind it have to wait until other clients have had their turn.
void Connection::answerNext() {
  const Frame frame = frameOf(input_);
  switch (frame.kind) {
    case Frame::Kind::kIncomplete:
      return enter(State::kReading);
    case Frame::Kind::kWhole:
      return answer(frame.size);
    case Frame::Kind::kGarbage:
      return giveUp("no V3 message");
    case Frame::Kind::kTooLong:
      return giveUp("a message longer than " + std::to_string(kLongestMessage) + " bytes");
  }
}

void Connection::answer(std::size_t size) {
  std::string message = input_.substr(0, size);
  input_.erase(0, size);
  deliver(owner_.exchanges().exchange({ordinal_, ++requests_}, message, walks_));
}

void Connection::deliver(Delivery delivery) {
  delivery_ = std::move(delivery);
  sent_ = 0;
  if (delivery_.delay.count() > 0) {
    // A request whose answer has to wait is counted at once all the same.
    owner_.counts().save();
    enterFor(State::kDelaying, delivery_.delay);
  } else {
    send();
  }
}

/// Sends what the socket takes. The counts are saved first: what a client has seen is in the file.
void Connection::send() {
  if (sent_ == 0) {
    // Once, although the socket may not take the first byte yet.
    owner_.counts().change() += std::exchange(delivery_.counted, {});
    owner_.counts().save();
  }
  if (sent_ == delivery_.bytes.size() || sendPiece()) {
    sent();
  }
}

/// False when the connection waits for the rest, or is closed.
bool Connection::sendPiece() {
  const std::size_t rest = delivery_.bytes.size() - sent_;
  const ssize_t done =
      ::send(socket_, delivery_.bytes.data() + sent_, delivery_.singly ? 1 : rest, MSG_NOSIGNAL);
  if (done < 0 && !mayPass(errno)) {
    owner_.log().event("connection " + std::to_string(ordinal_) +
                       ": lost within an answer: " + std::strerror(errno));
    close();
    return false;
  }
  sent_ += done > 0 ? static_cast<std::size_t>(done) : 0;
  if (sent_ == delivery_.bytes.size()) {
    return true;
  }
  if (done > 0 && delivery_.pause.count() > 0) {
    enterFor(State::kDelaying, delivery_.pause);
  } else {
    enter(State::kSending);
  }
  return false;
}

void Connection::sent() {
  if (delivery_.then == Delivery::Then::kRefuse) {
    owner_.refuse(delivery_.refusal);
  }
  const bool goOn = delivery_.then == Delivery::Then::kGoOn && !finishing_;
  delivery_ = {};
  if (!goOn) {
    linger();
  } else if (frameOf(input_).kind == Frame::Kind::kIncomplete) {
    enter(State::kReading);
  } else {
    enter(State::kYielding);
  }
}

void Connection::giveUp(const std::string& why) {
  owner_.log().event("connection " + std::to_string(ordinal_) + ": closed: " + why);
  linger();
}

void Connection::linger() {
  if (::shutdown(socket_, SHUT_WR) != 0) {
    return close();
  }
  input_.clear();
  input_.shrink_to_fit();
  enterFor(State::kLingering, kLinger);
}

void Connection::close() {
  if (state_ == State::kClosed) {
    return;
  }
  state_ = State::kClosed;
  reactor()->cancel_timer(this);
  watch(NULL_MASK);
  owner_.closed(*this);
}

void Connection::enter(State state) {
  state_ = state;
  reactor()->cancel_timer(this);
  if (!watch(maskOf(state))) {
    owner_.log().event("connection " + std::to_string(ordinal_) + ": closed: cannot be watched");
    close();
  }
}

/// Makes the reactor watch for these events only. False when it takes no more handles. A handler
/// without any is taken out: the reactor would keep it for good, since it cannot remove it later.
bool Connection::watch(ACE_Reactor_Mask mask) {
  const ACE_Reactor_Mask before = std::exchange(watched_, mask);
  if (mask == before) {
    return true;
  }
  if (mask == NULL_MASK) {
    reactor()->remove_handler(this, ALL_EVENTS_MASK | DONT_CALL);
    return true;
  }
  const int result = before == NULL_MASK ? reactor()->register_handler(this, mask)
                                         : reactor()->mask_ops(this, mask, ACE_Reactor::SET_MASK);
  if (result == -1) {
    watched_ = NULL_MASK;
  }
  return result != -1;
}

void Connection::enterFor(State state, std::chrono::milliseconds time) {
  enter(state);
  if (state_ == State::kClosed) {
    return;
  }
  ACE_Time_Value delay;
  delay.msec(static_cast<long>(time.count()));
  reactor()->schedule_timer(this, nullptr, delay);
}

}  // namespace qov::endpoint
