#ifndef QOV_TOOLS_QOV_ENDPOINT_FRAMING_H
#define QOV_TOOLS_QOV_ENDPOINT_FRAMING_H

#include <qovpub/qov_msg_head.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace qov::endpoint {

/// The longest message that is read, its head included; the clients' limit is the same.
inline constexpr std::size_t kLongestMessage = 2 << 20;

/// What stands at the start of the bytes that a client has sent.
struct Frame {
  enum class Kind {
    kIncomplete,  ///< more bytes are needed
    kWhole,       ///< a message of `size` bytes
    kGarbage,     ///< no head of a message
    kTooLong,     ///< a head that announces more than is read
  };
  Kind kind = Kind::kIncomplete;
  std::size_t size = 0;
};

/// The length is signed, as the clients read it: 0 or less is no body.
inline Frame frameOf(std::string_view bytes) {
  TLVMsgHeadV3 head;
  if (bytes.size() < sizeof head) {
    return {};
  }
  std::memcpy(&head, bytes.data(), sizeof head);
  if (head.magic_ != TLVMsgHeadV3::kMagic || head.version_ != TLVMsgHeadV3::kVersion) {
    return {Frame::Kind::kGarbage, 0};
  }
  const auto length = static_cast<std::int32_t>(head.len_);
  const std::size_t size = sizeof head + (length > 0 ? static_cast<std::size_t>(length) : 0);
  if (size > kLongestMessage) {
    return {Frame::Kind::kTooLong, 0};
  }
  return {bytes.size() < size ? Frame::Kind::kIncomplete : Frame::Kind::kWhole, size};
}

}  // namespace qov::endpoint

#endif
