#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_long_socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "diag/log_ids.h"
#include "link/deadline.h"
#include "link/socket_io.h"

namespace {

constexpr unsigned int kHeadSize = sizeof(TLVMsgHeadV3);

/// As it stands in the header at `head`: negative when the endpoint sends nonsense.
std::int32_t lengthOfBody(const char* head) {
  std::int32_t length;
  std::memcpy(&length, head + offsetof(TLVMsgHeadV3, len_), sizeof length);
  return length;
}

}  // namespace

unsigned int CQOVLongSocket::recvData(char* buffer, unsigned int& length,
                                      const ACE_Time_Value* timeout) {
  CQOVDebugKitGuard guard(
      0, "unsigned int CQOVLongSocket::recvData(char*, unsigned int&, const ACE_Time_Value*)");
  if (readMessage(buffer, length, timeout, guard)) {
    return 0;
  }
  receiveError_ = errno;
  guard.error(qov::log_id::kLinkNotReceived, __FUNCTION__, __LINE__,
              "Failed to receive V3 message, error is %s", std::strerror(errno));
  return reconnect();
}

/// False with errno set and the part that failed logged.
bool CQOVLongSocket::readMessage(char* buffer, unsigned int& length, const ACE_Time_Value* timeout,
                                 CQOVDebugKitGuard& guard) {
  unsigned int have = 0;
  if (!receive(buffer, have, kHeadSize, timeout)) {
    guard.error(qov::log_id::kLinkNoHead, "recvData", __LINE__,
                "It failed to receive v3 message head!");
    return false;
  }
  const auto body = static_cast<unsigned int>(std::max(lengthOfBody(buffer), 0));
  if (have < kHeadSize + body && !receiveBody(buffer, have, body, timeout)) {
    guard.error(qov::log_id::kLinkNoBody, "recvData", __LINE__,
                "It failed to receive v3 message body!");
    return false;
  }
  length = kHeadSize + body;
  if (isOwn(buffer)) {
    ahead_ = {length, have};
  }
  return true;
}

bool CQOVLongSocket::receiveBody(char* to, unsigned int& have, unsigned int length,
                                 const ACE_Time_Value* timeout) {
  if (length > kMaxMessage - kHeadSize) {
    errno = EMSGSIZE;
    return false;
  }
  return receive(to, have, kHeadSize + length, timeout);
}

/// Goes on until `to`, which has `have` bytes of the message, has `wanted`. The link's own buffer
/// also takes what comes with them: mostly the whole message, sometimes more.
bool CQOVLongSocket::receive(char* to, unsigned int& have, unsigned int wanted,
                             const ACE_Time_Value* timeout) {
  if (!qov::isUsable(peer_.get_handle(), interruption_)) {
    return false;
  }
  const unsigned int room = isOwn(to) ? kMaxMessage : wanted;
  have += takeAhead(to + have, room - have);
  if (have >= wanted) {
    return true;
  }
  const qov::Deadline deadline(timeout);
  for (bool first = true; have < wanted; first = false) {
    const bool maySleep = first && sleeps_ && timeout != nullptr && *timeout == limits_.reply;
    const ssize_t received = qov::receiveWithin(peer_.get_handle(), to + have, room - have,
                                                maySleep, deadline, interruption_);
    if (received < 0) {
      return false;
    }
    have += static_cast<unsigned int>(received);
  }
  return true;
}

/// Moves up to `most` of the bytes that were received too early to `to`; gives their number.
unsigned int CQOVLongSocket::takeAhead(char* to, unsigned int most) {
  const unsigned int count = std::min(most, ahead_.end - ahead_.begin);
  if (count > 0) {
    std::memmove(to, buffer_.get() + ahead_.begin, count);
    ahead_.begin += count;
  }
  return count;
}

bool CQOVLongSocket::isOwn(const char* buffer) const {
  return reinterpret_cast<const unsigned char*>(buffer) == buffer_.get();
}
