#include "modules/mqtt/requests.h"

#include <qovpub/qov_log.h>
#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include "modules/common/controls.h"
#include "modules/common/message_payload.h"
#include "modules/common/octets.h"
#include "modules/mqtt/log_ids.h"

namespace qov::mqtt {
namespace {

constexpr const char* kJson = "application/json";
constexpr const char* kBytes = "application/vnd.qov.message";

std::string quoted(std::string_view text) {
  return "\"" + common::shortened(text) + "\"";
}

/// A number in decimal digits, without any more of them than it needs.
template <class Number>
bool isNumber(std::string_view text, Number least, Number most, Number& number) {
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  return parsed.ec == std::errc() && number >= least && number <= most &&
         text == std::to_string(number);
}

/// The last level of the topic.
std::uint8_t moduleOf(const std::string& topic) {
  const std::string_view level = std::string_view(topic).substr(topic.rfind('/') + 1);
  unsigned int module = 0;
  if (!isNumber(level, 0U, 255U, module)) {
    throw RequestRefusal{RequestError::kNoModule, quoted(level) + " is no module, 0 to 255"};
  }
  return static_cast<std::uint8_t>(module);
}

void checkLength(const char* what, std::size_t length, std::size_t most) {
  if (length > most) {
    throw RequestRefusal{RequestError::kTooLong, std::string(what) + ": " + std::to_string(length) +
                                                     " bytes, more than " + std::to_string(most)};
  }
}

bool isJsonType(const std::string& contentType) {
  if (contentType == kBytes) {
    return false;
  }
  if (contentType.empty() || contentType == kJson) {
    return true;
  }
  throw RequestRefusal{RequestError::kContentType,
                       quoted(contentType) + " is neither " + kJson + " nor " + kBytes};
}

std::unique_ptr<CQOV_MsgPackage> requestIn(const std::string& payload, bool isJson) try {
  auto request = isJson ? common::messageOfJson(payload) : common::messageOfBytes(payload);
  const unsigned int type = request->head().type_;
  if (type != QOVMsgHead::kRequest) {
    throw RequestRefusal{RequestError::kBadMessage,
                         "head.type: " + std::to_string(type) + ", but that of a request is 1"};
  }
  return request;
} catch (const common::BadJson& bad) {
  throw RequestRefusal{RequestError::kBadMessage, bad.what()};
} catch (const common::BadBytes& bad) {
  throw RequestRefusal{RequestError::kBadMessage, bad.what()};
}

template <class Package>
std::size_t memoryOfRecords(const Package& message) {
  std::size_t bytes = sizeof message;
  for (const CTLVRecordV3& record : message) {
    bytes += sizeof record + record.count() * sizeof(CTLVCell);
  }
  return bytes;
}

/// Of what is decoded, about: small cells take more than on their way.
std::size_t memoryOf(const CQOV_MsgPackage& message) {
  const auto* const om = dynamic_cast<const CQOV_OM_MsgPackage*>(&message);
  const std::size_t inner =
      om != nullptr && om->get() != nullptr ? memoryOfRecords(*om->get()) : std::size_t{0};
  return common::sizeOfMessage(message) + memoryOfRecords(message) + inner;
}

}  // namespace

Requests::Requests(CQOV_Task& sender, const RequestSettings& settings, std::string responses,
                   Publish publish)
    : sender_(sender),
      settings_(settings),
      responses_(std::move(responses)),
      publish_(std::move(publish)) {}

void Requests::take(Incoming&& message) {
  ++counts_.received;
  if (!mayAnswerOn(message.responseTopic)) {
    tellUnanswerable(message);
    return;
  }
  Asked asked;
  asked.topic = std::move(message.responseTopic);
  asked.correlation = std::move(message.correlation);
  try {
    pass(message, asked);
  } catch (const RequestRefusal& refusal) {
    refuse(asked, refusal);
  }
}

void Requests::tellTooLarge(Outgoing&& answer) {
  if (isRefusal(answer.payload)) {
    ++counts_.lost;
    return;
  }
  const RequestRefusal refusal{RequestError::kBadAnswer,
                               "the answer is larger than the broker takes in one message"};
  --counts_.answered;
  ++counts_.refused[static_cast<std::size_t>(refusal.error)];
  answer.payload = refusal.json();
  answer.contentType = kJson;
  answer.isText = true;
  publish(std::move(answer));
}

void Requests::logCounts() const {
  std::string refused;
  for (std::size_t i = 0; i < kRequestErrors; ++i) {
    if (const std::uint64_t count = counts_.refused[i]; count > 0) {
      refused +=
          std::string(", ") + nameOf(static_cast<RequestError>(i)) + " " + std::to_string(count);
    }
  }
  QOV_GUARD(guard, sender_.taskMgr()->moduleId());
  QOV_INFO(guard, log_id::kRequestCounts,
           "Requests from the broker: %llu have come, %llu answered, %llu dropped without an "
           "answer, %llu answers lost%s",
           static_cast<unsigned long long>(counts_.received),
           static_cast<unsigned long long>(counts_.answered),
           static_cast<unsigned long long>(counts_.unanswerable),
           static_cast<unsigned long long>(counts_.lost), refused.c_str());
}

bool Requests::mayAnswerOn(const std::string& topic) const {
  return topic.size() <= kMostTopic && topic.compare(0, responses_.size(), responses_) == 0 &&
         topic.find_first_of("+#") == std::string::npos && common::isUtf8(topic);
}

void Requests::tellUnanswerable(const Incoming& message) {
  ++counts_.unanswerable;
  if (const std::uint64_t count = unanswerable_.add(); count > 0) {
    const unsigned int kit = sender_.taskMgr()->moduleId();
    QOV_GUARD(guard, kit);
    QOV_WARN(guard, log_id::kRequestUnanswerable,
             "Dropped a request on %s, as its response topic %s does not begin with %s or has "
             "wildcards; %llu since the start",
             common::withoutControls(message.topic).c_str(),
             common::withoutControls(quoted(message.responseTopic)).c_str(), responses_.c_str(),
             static_cast<unsigned long long>(count));
  }
}

void Requests::pass(const Incoming& message, Asked& asked) {
  checkLength("payload", message.payload.size(), kMostPayload);
  checkLength("correlation data", asked.correlation.size(), kMostCorrelation);
  asked.module = moduleOf(message.topic);
  // Nothing is read for a module that nobody may ask.
  if (!settings_.allowed.hasModule(asked.module)) {
    throw RequestRefusal{RequestError::kNotAllowed,
                         "module " + std::to_string(asked.module) + " may not be asked"};
  }
  const auto timeout = timeoutOf(message);
  asked.isJson = isJsonType(message.contentType);
  auto request = requestIn(message.payload, asked.isJson);
  QOVMsgHead& head = request->head();
  const std::uint64_t opc = head.opc_;
  if (!settings_.allowed.has(asked.module, opc)) {
    throw RequestRefusal{RequestError::kNotAllowed, "module " + std::to_string(asked.module) +
                                                        " may not be asked for operation " +
                                                        std::to_string(opc)};
  }
  // Two senders may have the same serial number.
  asked.serial = head.sn_;
  head.sn_ = QOVMsgHead().sn_;
  head.mst_ = 0;
  asked.bytes = std::max(message.payload.size(), memoryOf(*request));
  reserve(asked.bytes);
  const QOVReason reason =
      QOVRequest(sender_, asked.module, opc, std::move(request))
          .askLater(timeout, [this, asked](QOVAnswer answer) { finish(asked, std::move(answer)); });
  if (reason != QOVReason::kNone) {
    release(asked.bytes);
    throw refusalOf(reason, 0, asked.module);
  }
}

/// What the first user property of that name says.
std::chrono::milliseconds Requests::timeoutOf(const Incoming& message) const {
  const auto said = std::find_if(message.properties.begin(), message.properties.end(),
                                 [](const auto& property) { return property.first == "timeout"; });
  if (said == message.properties.end()) {
    return settings_.timeout;
  }
  using Count = std::chrono::milliseconds::rep;
  Count count = 0;
  if (!isNumber(said->second, Count{1}, kLongestRequest.count(), count)) {
    throw RequestRefusal{RequestError::kBadTimeout, quoted(said->second) +
                                                        " is no number of milliseconds from 1 to " +
                                                        std::to_string(kLongestRequest.count())};
  }
  return std::chrono::milliseconds(count);
}

void Requests::reserve(std::size_t bytes) {
  // One alone may have more, or it would never be carried out.
  if (pending_ >= settings_.pending ||
      (pending_ > 0 && pendingBytes_ + bytes > kMostPendingBytes)) {
    throw RequestRefusal{RequestError::kBusy, std::to_string(pending_) + " requests are pending"};
  }
  ++pending_;
  pendingBytes_ += bytes;
}

void Requests::release(std::size_t bytes) {
  --pending_;
  pendingBytes_ -= bytes;
}

void Requests::finish(const Asked& asked, QOVAnswer answer) {
  release(asked.bytes);
  if (!answer) {
    refuse(asked, refusalOf(answer.reason(), answer.result(), asked.module));
    return;
  }
  answer->head().sn_ = asked.serial;
  std::string payload;
  if (common::sizeOfMessage(*answer) <= kMostPayload) {
    payload = asked.isJson ? common::jsonOfMessage(*answer) : common::bytesOfMessage(*answer);
  }
  if (payload.empty() || payload.size() > kMostPayload) {
    refuse(asked, {RequestError::kBadAnswer, "module " + std::to_string(asked.module) +
                                                 " gave an answer of more than " +
                                                 std::to_string(kMostPayload) + " bytes, or none"});
    return;
  }
  ++counts_.answered;
  publish(asked, std::move(payload), asked.isJson);
}

void Requests::refuse(const Asked& asked, const RequestRefusal& refusal) {
  ++counts_.refused[static_cast<std::size_t>(refusal.error)];
  publish(asked, refusal.json(), true);
}

void Requests::publish(const Asked& asked, std::string payload, bool isJson) {
  Outgoing message;
  message.topic = asked.topic;
  message.payload = std::move(payload);
  message.contentType = isJson ? kJson : kBytes;
  message.isText = isJson;
  message.correlation = asked.correlation;
  message.atMostOnce = true;
  publish(std::move(message));
}

void Requests::publish(Outgoing&& message) {
  const std::string topic = message.topic;
  if (publish_(std::move(message))) {
    return;
  }
  ++counts_.lost;
  if (const std::uint64_t count = lost_.add(); count > 0) {
    const unsigned int kit = sender_.taskMgr()->moduleId();
    QOV_GUARD(guard, kit);
    QOV_WARN(guard, log_id::kAnswerLost,
             "Dropped an answer for %s: too many wait for the broker; %llu since the start",
             common::withoutControls(topic).c_str(), static_cast<unsigned long long>(count));
  }
}

}  // namespace qov::mqtt
