#include <qovpub/qov_common_debugkit.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "diag/log_ids.h"
#include "link/deadline.h"
#include "link/link_state.h"
#include "link/socket_io.h"

namespace {

/// As it stands in the header at `head`: negative when the endpoint sends nonsense.
std::int32_t lengthOfBody(const char* head) {
  std::int32_t length;
  std::memcpy(&length, head + offsetof(TLVMsgHeadV3, len_), sizeof length);
  return length;
}

}  // namespace

/// One message from the endpoint, on its way into a buffer.
///
/// Hidden: a nested class would be shown to the library's users as the one around it is.
class __attribute__((visibility("hidden"))) CQOVLongSocket::Reception {
 public:
  Reception(CQOVLongSocket& link, char* buffer, const ACE_Time_Value* timeout)
      : state_(*link.state_), to_(buffer), timeout_(timeout) {}

  /// False with errno set and the part that failed logged.
  bool run(unsigned int& length, CQOVDebugKitGuard& guard);

 private:
  bool receiveBody(unsigned int length);
  bool receiveUpTo(unsigned int wanted);
  unsigned int takeAhead(char* to, unsigned int most);
  bool isOwn() const;

  State& state_;
  char* const to_;
  const ACE_Time_Value* const timeout_;
  /// How many bytes of the message `to_` has.
  unsigned int have_ = 0;
};

unsigned int CQOVLongSocket::recvData(char* buffer, unsigned int& length,
                                      const ACE_Time_Value* timeout) {
  CQOVDebugKitGuard guard(
      0, "unsigned int CQOVLongSocket::recvData(char*, unsigned int&, const ACE_Time_Value*)");
  if (Reception(*this, buffer, timeout).run(length, guard)) {
    return 0;
  }
  state_->receiveError_ = errno;
  guard.error(qov::log_id::kLinkNotReceived, __FUNCTION__, __LINE__,
              "Failed to receive V3 message, error is %s", std::strerror(errno));
  return reconnect();
}

bool CQOVLongSocket::Reception::run(unsigned int& length, CQOVDebugKitGuard& guard) {
  if (!receiveUpTo(State::kHeadSize)) {
    guard.error(qov::log_id::kLinkNoHead, "recvData", __LINE__,
                "It failed to receive v3 message head!");
    return false;
  }
  const auto body = static_cast<unsigned int>(std::max(lengthOfBody(to_), 0));
  if (have_ < State::kHeadSize + body && !receiveBody(body)) {
    guard.error(qov::log_id::kLinkNoBody, "recvData", __LINE__,
                "It failed to receive v3 message body!");
    return false;
  }
  length = State::kHeadSize + body;
  if (isOwn()) {
    state_.ahead_ = {length, have_};
  }
  return true;
}

bool CQOVLongSocket::Reception::receiveBody(unsigned int length) {
  if (length > kMaxMessage - State::kHeadSize) {
    errno = EMSGSIZE;
    return false;
  }
  return receiveUpTo(State::kHeadSize + length);
}

/// The link's own buffer also takes what comes with the `wanted` bytes: mostly the whole message,
/// sometimes more.
bool CQOVLongSocket::Reception::receiveUpTo(unsigned int wanted) {
  if (!qov::isUsable(state_.peer_.get_handle(), state_.interruption_)) {
    return false;
  }
  const unsigned int room = isOwn() ? kMaxMessage : wanted;
  have_ += takeAhead(to_ + have_, room - have_);
  if (have_ >= wanted) {
    return true;
  }
  const qov::Deadline deadline(timeout_);
  for (bool first = true; have_ < wanted; first = false) {
    const bool maySleep =
        first && state_.sleeps_ && timeout_ != nullptr && *timeout_ == state_.limits_.reply;
    const ssize_t received =
        qov::receiveWithin(state_.peer_.get_handle(), to_ + have_, room - have_, maySleep, deadline,
                           state_.interruption_);
    if (received < 0) {
      return false;
    }
    have_ += static_cast<unsigned int>(received);
  }
  return true;
}

/// Moves up to `most` of the bytes that were received too early to `to`; gives their number.
unsigned int CQOVLongSocket::Reception::takeAhead(char* to, unsigned int most) {
  const unsigned int count = std::min(most, state_.ahead_.end - state_.ahead_.begin);
  if (count > 0) {
    std::memmove(to, state_.buffer_.get() + state_.ahead_.begin, count);
    state_.ahead_.begin += count;
  }
  return count;
}

bool CQOVLongSocket::Reception::isOwn() const {
  return reinterpret_cast<const unsigned char*>(to_) == state_.buffer_.get();
}
