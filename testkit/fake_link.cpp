#include <qovpub/qov_testkit.h>

#include <utility>

namespace {

std::uint64_t commandOf(const CT7QPackageV3& message) {
  return message.count() > 0 ? message[0].cmd() : 0;
}

void noRecords(const CT7QPackageV3&, CT7QPackageV3&) {}

}  // namespace

// No text that names a host and a port: the link never connects.
QOVFakeLink::QOVFakeLink() : CQOVLongSocket(std::string(), Limits()) {}

QOVFakeLink::~QOVFakeLink() = default;

void QOVFakeLink::answer(std::uint64_t command, Fill fill) {
  table_[command] = std::make_shared<Fill>(fill ? std::move(fill) : noRecords);
}

void QOVFakeLink::fail(std::uint64_t command) {
  table_.erase(command);
}

unsigned int QOVFakeLink::sendMsg_i(const unsigned char* data, unsigned int length) {
  if (!isRetry()) {
    auto message = std::make_unique<CT7QPackageV3>();
    message->decode(data, length);
    sent_.push_back(std::move(message));
  }
  return 0;
}

unsigned int QOVFakeLink::receiveMsg(CT7QPackageV3* package) {
  const CT7QPackageV3& request = *sent_.back();
  const auto entry = table_.find(commandOf(request));
  if (entry == table_.end()) {
    return kSocketFailed;
  }
  const std::shared_ptr<Fill> fill = entry->second;
  CT7QPackageV3 answer;
  answer.head().ser_ = request.head().ser_;
  (*fill)(request, answer);
  unsigned char* bytes = nullptr;
  const unsigned int length = answer.encode(bytes);
  const std::unique_ptr<unsigned char[]> encoded(bytes);
  return length == CT7QPackageV3::kFailed ? kBadReply : convert(bytes, length, package);
}
