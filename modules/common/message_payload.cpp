#include "modules/common/message_payload.h"

#include <qovpub/qov_om_message_package.h>

#include <cstring>
#include <limits>

#include "modules/common/decode_fault.h"
#include "modules/common/message_json.h"

namespace qov::common {
namespace {

std::unique_ptr<CQOV_MsgPackage> messageOf(const Json::Value& json) {
  if (json.isObject() && json.isMember("inner")) {
    auto message = std::make_unique<CQOV_OM_MsgPackage>(nullptr);
    fromJson(json, "", *message);
    return message;
  }
  auto message = std::make_unique<CQOV_MsgPackage>();
  fromJson(json, "", *message);
  return message;
}

bool isOm(const CQOV_MsgPackage& message) {
  return dynamic_cast<const CQOV_OM_MsgPackage*>(&message) != nullptr;
}

bool saysOm(const QOVMsgHead& head) {
  return (head.flags_ & QOVMsgHead::kFlagOm) != 0;
}

}  // namespace

std::string jsonOfMessage(const CQOV_MsgPackage& message) {
  const auto* const om = dynamic_cast<const CQOV_OM_MsgPackage*>(&message);
  return jsonLine(om != nullptr ? toJson(*om) : toJson(message));
}

std::unique_ptr<CQOV_MsgPackage> messageOfJson(std::string_view text) {
  auto message = messageOf(parseJson(text));
  if (saysOm(message->head()) != isOm(*message)) {
    throw BadJson("head.flags", isOm(*message) ? "without bit 0, but there is a message inside"
                                               : "with bit 0, but there is no message inside");
  }
  return message;
}

std::size_t sizeOfMessage(const CQOV_MsgPackage& message) {
  if (const auto* const om = dynamic_cast<const CQOV_OM_MsgPackage*>(&message); om != nullptr) {
    const CT7QPackageV3* const inner = om->get();
    return inner == nullptr
               ? 0
               : sizeof(QOVMsgHead) + sizeof(TLVMsgHeadV3) + std::size_t{bodyLength(*inner)};
  }
  return sizeof(QOVMsgHead) + std::size_t{bodyLength(message)};
}

std::string bytesOfMessage(CQOV_MsgPackage& message) {
  const std::size_t size = sizeOfMessage(message);
  if (size > std::numeric_limits<unsigned int>::max()) {
    return "";
  }
  std::string bytes(size, '\0');
  const unsigned int written = message.encode(reinterpret_cast<unsigned char*>(bytes.data()),
                                              static_cast<unsigned int>(size));
  return written == size ? bytes : "";
}

std::unique_ptr<CQOV_MsgPackage> messageOfBytes(std::string_view bytes) {
  if (bytes.size() > std::numeric_limits<unsigned int>::max()) {
    throw BadBytes("more bytes than a message has");
  }
  QOVMsgHead head;
  if (bytes.size() >= sizeof head) {
    std::memcpy(&head, bytes.data(), sizeof head);
  }
  std::unique_ptr<CQOV_MsgPackage> message(CreateQovMsgPackage(head));
  if (message == nullptr) {
    throw std::bad_alloc();
  }
  const unsigned int body = message->decode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                            static_cast<unsigned int>(bytes.size()));
  if (body == CQOV_MsgPackage::kFailed) {
    const DecodeFault& fault = message->decodeFault();
    throw BadBytes("bad data at byte " + std::to_string(fault.pos) + ": " + textOf(fault));
  }
  const std::size_t heads =
      sizeof(QOVMsgHead) + (isOm(*message) ? sizeof(TLVMsgHeadV3) : std::size_t{0});
  if (heads + body != bytes.size()) {
    throw BadBytes("bad data at byte " + std::to_string(heads + body) + ": " +
                   std::to_string(bytes.size() - heads - body) + " bytes behind the message");
  }
  return message;
}

}  // namespace qov::common
