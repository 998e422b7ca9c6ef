// The first lines of the input are the last level of a topic, a content type, a response topic,
// correlation data, a user property's name, and its value; the rest is the payload.
#include <qovpub/qov_testkit.h>

#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "modules/common/json_object.h"
#include "modules/common/message_json.h"
#include "modules/common/message_payload.h"
#include "modules/mqtt/requests.h"
#include "tests/support/fuzz.h"

using namespace qov;
using mqtt::Incoming;
using mqtt::Outgoing;
using mqtt::Requests;
using test::require;

namespace {

constexpr std::uint8_t kReader = 10;
constexpr std::uint64_t kRead = 1;
constexpr std::uint64_t kRefused = 2;
constexpr const char* kResponses = "qov/1/agent/response/";

class NoWorker : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
};

/// An agent with one module that is there, which answers kRead with what it was sent.
class Agent {
 public:
  Agent() {
    kit_.answer(kReader, kRead, [](const CQOV_MsgPackage& asked, CQOV_MsgPackage& answer) {
      for (const CTLVRecordV3& record : asked) {
        answer.addRecord(record.cmd()) = CTLVRecordV3(record);
      }
    });
    kit_.refuse(kReader, kRefused, 5);
    mqtt::RequestSettings settings;
    settings.allowed = mqtt::OperationList("10:1,2 77:*");
    requests_ = std::make_unique<Requests>(sender_, settings, kResponses, [this](Outgoing&& told) {
      told_.push_back(std::move(told));
      return true;
    });
  }

  /// What is published, one message or, if nobody may be told, none.
  std::vector<Outgoing> take(Incoming&& message) {
    const std::uint64_t before = requests_->counts().unanswerable;
    told_.clear();
    requests_->take(std::move(message));
    kit_.advance(std::chrono::milliseconds(0));
    kit_.takeSent();
    const bool isUnanswerable = requests_->counts().unanswerable != before;
    require(told_.size() == (isUnanswerable ? 0 : 1), "a request has one answer");
    return std::move(told_);
  }

 private:
  QOVTestKit kit_{42};
  NoWorker sender_{kit_.module()};
  std::vector<Outgoing> told_;
  std::unique_ptr<Requests> requests_;
};

/// What a request has to be known for when its answer comes.
struct Asked {
  std::string topic;
  std::string correlation;
  std::string payload;
};

Json::Value recordsOf(const CQOV_MsgPackage& message) {
  Json::Value records(Json::arrayValue);
  for (const CTLVRecordV3& record : message) {
    records.append(common::toJson(record));
  }
  return records;
}

/// Of what is no refusal.
void checkRecords(const Outgoing& answer, const Asked& asked) {
  const auto read = [&](const std::string& payload) {
    return answer.isText ? common::messageOfJson(payload) : common::messageOfBytes(payload);
  };
  const auto request = read(asked.payload);
  require(recordsOf(*read(answer.payload)) == recordsOf(*request) ||
              dynamic_cast<CQOV_OM_MsgPackage*>(request.get()) != nullptr,
          "an answer has what its module has said");
}

void checkAnswer(const Outgoing& answer, const Asked& asked) {
  require(answer.topic == asked.topic && answer.correlation == asked.correlation,
          "an answer goes where its request says");
  require(answer.topic.rfind(kResponses, 0) == 0, "an answer goes to a topic of answers");
  require(answer.payload.size() <= Requests::kMostPayload, "an answer is not too long");
  try {
    if (!answer.isText || !common::parseJson(answer.payload).isMember("error")) {
      checkRecords(answer, asked);
    }
  } catch (const std::runtime_error&) {
    require(false, "an answer is what its type says");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Agent agent;
  test::silence();
  std::string text = test::textOf(data, size);
  Incoming message;
  message.topic = "qov/1/agent/request/" + test::takeLine(text);
  message.contentType = test::takeLine(text);
  message.responseTopic = test::takeLine(text);
  message.correlation = test::takeLine(text);
  const std::string name = test::takeLine(text);
  message.properties = {{name, test::takeLine(text)}};
  message.payload = text;
  const Asked asked{message.responseTopic, message.correlation, text};
  for (const Outgoing& answer : agent.take(std::move(message))) {
    checkAnswer(answer, asked);
  }
  return 0;
}
