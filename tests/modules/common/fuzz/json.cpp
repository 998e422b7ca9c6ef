// The input is a message in JSON, of any kind.
#include <qovpub/qov_message_package.h>

#include <memory>

#include "modules/common/json_object.h"
#include "modules/common/message_json.h"
#include "modules/common/message_payload.h"
#include "tests/support/fuzz.h"

using namespace qov;
using test::require;

namespace {

std::unique_ptr<CT7QPackageV3> v3OfJson(const std::string& text) {
  auto message = std::make_unique<CT7QPackageV3>();
  common::fromJson(common::parseJson(text), "", *message);
  return message;
}

std::string jsonOfV3(const CT7QPackageV3& message) {
  return common::jsonLine(common::toJson(message));
}

std::string bytesOfV3(CT7QPackageV3& message) {
  std::string bytes(sizeof(TLVMsgHeadV3) + common::bodyLength(message), '\0');
  const unsigned int size = message.encode(reinterpret_cast<unsigned char*>(bytes.data()),
                                           static_cast<unsigned int>(bytes.size()));
  require(size == bytes.size(), "a message in JSON can be encoded");
  return bytes;
}

std::unique_ptr<CT7QPackageV3> v3OfBytes(const std::string& bytes) {
  auto message = std::make_unique<CT7QPackageV3>();
  const unsigned int body = message->decode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                            static_cast<unsigned int>(bytes.size()));
  require(body != CT7QPackageV3::kFailed, "a message in JSON can be decoded");
  return message;
}

/// What is written of a message is read and gives the same message, which is returned.
template <class Message, class OfJson, class ToJson>
auto writtenAndRead(const Message& message, OfJson ofJson, ToJson toJson) {
  const std::string written = toJson(message);
  auto read = ofJson(written);
  require(toJson(*read) == written, "a message that is read back is written as before");
  return read;
}

/// Not the cells' tags too: a cell without a value has lost its own when it is decoded.
template <class Message>
void requireSameRecords(const Message& decoded, const Message& message) {
  require(decoded.count() == message.count(), "a message that is decoded has every record");
  for (unsigned long i = 0; i < message.count(); ++i) {
    require(decoded[i].cmd() == message[i].cmd() && decoded[i].count() == message[i].count(),
            "a record that is decoded has its command code and every cell");
  }
}

/// From text to message, back, and to bytes and back. `ofJson` refuses with BadJson what is no
/// message; of what `toJson` has written it must not. The result is whether the text is JSON.
template <class OfJson, class ToJson, class ToBytes, class OfBytes>
bool check(const std::string& text, OfJson ofJson, ToJson toJson, ToBytes toBytes,
           OfBytes ofBytes) {
  decltype(ofJson(text)) message;
  try {
    message = ofJson(text);
  } catch (const common::NotJson&) {
    return false;
  } catch (const common::BadJson&) {
    return true;
  }
  writtenAndRead(*message, ofJson, toJson);
  const std::string bytes = toBytes(*message);
  const auto decoded = ofBytes(bytes);
  requireSameRecords(*decoded, *message);
  const auto read = writtenAndRead(*decoded, ofJson, toJson);
  // A cell without a value loses its tag when it is decoded.
  const bool mayHaveLostTags = toJson(*message).find("\"length\":0,") != std::string::npos;
  require(toBytes(*read) == (mayHaveLostTags ? toBytes(*decoded) : bytes),
          "a message that is read back has the same bytes");
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  const std::string text = test::textOf(data, size);
  if (check(text, common::messageOfJson, common::jsonOfMessage, common::bytesOfMessage,
            common::messageOfBytes)) {
    check(text, v3OfJson, jsonOfV3, bytesOfV3, v3OfBytes);
  }
  return 0;
}
