#include "modules/mqtt/requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <qovpub/qov_testkit.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "modules/common/json_object.h"
#include "modules/common/message_payload.h"

using ::testing::AllOf;
using ::testing::Each;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace qov::mqtt {
namespace {

using std::chrono::milliseconds;

constexpr std::uint8_t kReader = 10;
constexpr std::uint64_t kRead = 0x1001;
constexpr std::uint64_t kSlow = 0x1002;
constexpr std::uint64_t kForbidden = 0x1003;
constexpr const char* kJson = "application/json";
constexpr const char* kBytes = "application/vnd.qov.message";

class NoWorker : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;
  int handleMessage(CQOV_MsgPackage&) override { return 0; }
};

/// A request of a client of the broker: '10' answers the operation "read" with what it was sent.
class RequestsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kit_.answer(kReader, kRead, [](const CQOV_MsgPackage& asked, CQOV_MsgPackage& answer) {
      for (const CTLVRecordV3& record : asked) {
        answer.addRecord(record.cmd()) = CTLVRecordV3(record);
      }
    });
    kit_.fail(kReader, kSlow, QOVReason::kTimedOut);
    start("10:0x1001,0x1002 77:*");
  }

  void start(const std::string& allowed, std::size_t pending = 256) {
    RequestSettings settings;
    settings.allowed = OperationList(allowed);
    settings.pending = pending;
    requests_ = std::make_unique<Requests>(sender_, settings, "qov/1/agent/response/",
                                           [this](Outgoing&& message) {
                                             if (hasRoom_) {
                                               answers_.push_back(std::move(message));
                                             }
                                             return hasRoom_;
                                           });
  }

  static std::string document(std::uint64_t opc, const std::string& records = "[]") {
    return R"({"head":{"type":1,"sn":4711,"cid":5,"opc":)" + std::to_string(opc) +
           R"(},"records":)" + records + "}";
  }

  static Incoming request(const std::string& payload) {
    Incoming message;
    message.topic = "qov/1/agent/request/10";
    message.payload = payload;
    message.contentType = kJson;
    message.responseTopic = "qov/1/agent/response/me";
    message.correlation = std::string(
        "\0\xff"
        "c",
        3);
    return message;
  }

  /// Gives the request to the agent and lets what is due happen.
  void send(Incoming message) {
    requests_->take(std::move(message));
    kit_.advance(milliseconds(0));
  }

  /// The only answer so far; the next ones are counted anew.
  Outgoing answer() {
    EXPECT_THAT(answers_, SizeIs(1));
    Outgoing first = answers_.empty() ? Outgoing() : std::move(answers_.front());
    answers_.clear();
    return first;
  }

  /// What the error answer to the request says, which has to be told as every one is.
  Json::Value error(Incoming message) {
    const std::string correlation = message.correlation;
    send(std::move(message));
    return errorIn(answer(), correlation);
  }

  static Json::Value errorIn(const Outgoing& told, const std::string& correlation) {
    EXPECT_EQ(told.topic, "qov/1/agent/response/me");
    EXPECT_EQ(told.contentType, kJson);
    EXPECT_TRUE(told.isText);
    EXPECT_EQ(told.correlation, correlation);
    EXPECT_THAT(told.payload, SizeIs(::testing::Lt(400U)));
    const Json::Value json = common::parseJson(told.payload);
    EXPECT_THAT(json.getMemberNames(), ::testing::ElementsAre("error"));
    EXPECT_NE(json["error"]["text"].asString(), "");
    return json["error"];
  }

  std::uint64_t refusals(RequestError error) const {
    return requests_->counts().refused[static_cast<std::size_t>(error)];
  }

  QOVTestKit kit_{42};
  NoWorker sender_{kit_.module()};
  bool hasRoom_ = true;
  std::vector<Outgoing> answers_;
  std::unique_ptr<Requests> requests_;
};

TEST_F(RequestsTest, AnswersJsonWithTheModulesAnswerAsJson) {
  send(request(
      document(kRead, R"([{"cmd":3,"cells":[{"tag":1,"type":"String","value":"Z\u00fcrich"}]}])")));
  const Outgoing told = answer();
  EXPECT_EQ(told.topic, "qov/1/agent/response/me");
  EXPECT_EQ(told.correlation, std::string("\0\xff"
                                          "c",
                                          3));
  EXPECT_EQ(told.contentType, kJson);
  EXPECT_TRUE(told.isText);
  const Json::Value json = common::parseJson(told.payload);
  EXPECT_EQ(json["head"]["type"], 2);
  EXPECT_EQ(json["head"]["opc"], Json::Int64{kRead});
  EXPECT_EQ(json["records"][0]["cells"][0]["value"], "Z\xc3\xbcrich");
  EXPECT_EQ(requests_->counts().received, 1U);
  EXPECT_EQ(requests_->counts().answered, 1U);
}

TEST_F(RequestsTest, AnswersBytesWithTheBytesOfTheModulesAnswer) {
  CQOV_MsgPackage asked;
  asked.head().type_ = QOVMsgHead::kRequest;
  asked.head().opc_ = kRead;
  asked.addRecord(3).addUnsigned(1, 9);
  Incoming message = request(common::bytesOfMessage(asked));
  message.contentType = kBytes;
  send(std::move(message));
  const Outgoing told = answer();
  EXPECT_EQ(told.contentType, kBytes);
  EXPECT_FALSE(told.isText);
  const auto read = common::messageOfBytes(told.payload);
  EXPECT_EQ(read->head().type_, QOVMsgHead::kResponse);
  EXPECT_EQ((*read)[0].getUnsigned(1), 9U);
}

TEST_F(RequestsTest, TakesARequestWithoutAContentTypeForJson) {
  Incoming message = request(document(kRead));
  message.contentType.clear();
  send(std::move(message));
  EXPECT_EQ(answer().contentType, kJson);
}

TEST_F(RequestsTest, AsksTheModuleInTheNameOfItsOwnAndTellsTheSendersNumber) {
  send(request(document(kRead)));
  send(request(document(kRead)));
  ASSERT_THAT(kit_.sent(), SizeIs(2));
  const QOVMsgHead& first = kit_.sent()[0]->head();
  EXPECT_EQ(first.smid_, 42);
  EXPECT_EQ(first.rmid_, kReader);
  EXPECT_EQ(first.spid_, QOVTestProcess::kId);
  EXPECT_EQ(first.cid_, 5);
  // Two senders may use the same one at a time.
  EXPECT_NE(first.sn_, kit_.sent()[1]->head().sn_);
  ASSERT_THAT(answers_, SizeIs(2));
  for (const Outgoing& told : answers_) {
    EXPECT_EQ(common::parseJson(told.payload)["head"]["sn"], 4711);
    EXPECT_EQ(common::parseJson(told.payload)["head"]["cid"], 5);
  }
}

TEST_F(RequestsTest, LetsNothingInByDefault) {
  start("");
  EXPECT_EQ(error(request(document(kRead)))["code"], "not-allowed");
  // Not even read.
  EXPECT_EQ(error(request("{"))["code"], "not-allowed");
  EXPECT_THAT(kit_.sent(), IsEmpty());
  EXPECT_EQ(refusals(RequestError::kNotAllowed), 2U);
}

TEST_F(RequestsTest, RefusesAnOperationThatIsNotListed) {
  const Json::Value told = error(request(document(kForbidden)));
  EXPECT_EQ(told["code"], "not-allowed");
  EXPECT_EQ(told["text"], "module 10 may not be asked for operation 4099");
  EXPECT_THAT(kit_.sent(), IsEmpty());
}

TEST_F(RequestsTest, SaysThatAModuleIsUnknown) {
  Incoming message = request(document(kRead));
  message.topic = "qov/1/agent/request/77";
  const Json::Value told = error(message);
  EXPECT_EQ(told["code"], "no-module");
  EXPECT_EQ(told["text"], "module 77 is not in this agent");
  for (const char* name : {"256", "-1", "010", "+1", "", "1 ", "reader", "\xff"}) {
    message.topic = std::string("qov/1/agent/request/") + name;
    EXPECT_EQ(error(message)["code"], "no-module") << name;
  }
  EXPECT_EQ(refusals(RequestError::kNoModule), 9U);
}

TEST_F(RequestsTest, SaysWhatIsWrongWithAMessage) {
  const Json::Value told = error(request(R"({"head":{"type":1,"opc":4097},"records":[{"cmd":1,)"
                                         R"("cells":[{"tag":1,"type":"Uint","value":-1}]}]})"));
  EXPECT_EQ(told["code"], "bad-message");
  EXPECT_THAT(told["text"].asString(), StartsWith("records[0].cells[0].value: -1 is not within"));
  for (const std::string& payload :
       {std::string(), std::string("{"), std::string("\xff\xfe"), std::string("{\"\xc3(\":1}"),
        std::string(1000000, '['), R"({")" + std::string(100000, 'k') + R"(":1})"}) {
    EXPECT_EQ(error(request(payload))["code"], "bad-message");
  }
  EXPECT_THAT(kit_.sent(), IsEmpty());
}

TEST_F(RequestsTest, SaysAtWhichByteAMessageIsWrong) {
  Incoming message = request("hello");
  message.contentType = kBytes;
  const Json::Value told = error(message);
  EXPECT_EQ(told["code"], "bad-message");
  EXPECT_THAT(told["text"].asString(), StartsWith("bad data at byte 0: head-short: 5 bytes"));
}

TEST_F(RequestsTest, RefusesAMessageThatIsNoRequest) {
  const Json::Value told = error(request(R"({"head":{"type":3,"opc":4097},"records":[]})"));
  EXPECT_EQ(told["code"], "bad-message");
  EXPECT_EQ(told["text"], "head.type: 3, but that of a request is 1");
}

TEST_F(RequestsTest, RefusesAnotherContentType) {
  Incoming message = request(document(kRead));
  message.contentType = "text/plain";
  const Json::Value told = error(message);
  EXPECT_EQ(told["code"], "content-type");
  EXPECT_THAT(told["text"].asString(), StartsWith("\"text/plain\" is neither "));
}

TEST_F(RequestsTest, WaitsAsLongAsTheRequestSays) {
  Incoming message = request(document(kSlow));
  message.properties = {{"other", "1"}, {"timeout", "1500"}, {"timeout", "1"}};
  send(message);
  kit_.advance(milliseconds(1499));
  EXPECT_THAT(answers_, IsEmpty());
  kit_.advance(milliseconds(1));
  EXPECT_EQ(errorIn(answer(), message.correlation)["code"], "timed-out");
}

TEST_F(RequestsTest, WaitsFiveSecondsIfTheRequestDoesNotSay) {
  send(request(document(kSlow)));
  kit_.advance(milliseconds(4999));
  EXPECT_THAT(answers_, IsEmpty());
  kit_.advance(milliseconds(1));
  EXPECT_EQ(errorIn(answer(), request("").correlation)["code"], "timed-out");
  EXPECT_EQ(refusals(RequestError::kTimedOut), 1U);
}

TEST_F(RequestsTest, RefusesATimeOutThatIsNoneOrOutOfRange) {
  Incoming message = request(document(kRead));
  for (const char* timeout : {"1", "600000"}) {
    message.properties = {{"timeout", timeout}};
    send(message);
    EXPECT_THAT(answer().payload, Not(HasSubstr("error"))) << timeout;
  }
  for (const char* timeout : {"", "0", "-1", "600001", "1.5", "1s", "99999999999999999999"}) {
    message.properties = {{"timeout", timeout}};
    EXPECT_EQ(error(message)["code"], "bad-timeout") << timeout;
  }
}

TEST_F(RequestsTest, TellsTheResultThatTheModuleAnswersWith) {
  kit_.refuse(kReader, kRead, 5);
  const Json::Value told = error(request(document(kRead)));
  EXPECT_EQ(told["code"], "refused");
  EXPECT_EQ(told["result"], 5);
  EXPECT_EQ(told["text"], "module 10 answered with result 5");
}

TEST_F(RequestsTest, IsBusyIfTheModuleHasNoRoom) {
  kit_.fail(kReader, kRead, QOVReason::kNoRoom);
  EXPECT_EQ(error(request(document(kRead)))["code"], "busy");
}

TEST_F(RequestsTest, TellsPendingSendersThatTheAgentStops) {
  send(request(document(kSlow)));
  kit_.stop();
  EXPECT_EQ(errorIn(answer(), request("").correlation)["code"], "stopping");
  EXPECT_EQ(error(request(document(kRead)))["code"], "stopping");
}

TEST_F(RequestsTest, IsBusyWhileAsManyAreWaitingAsMayBe) {
  start("10:*", 3);
  for (int i = 0; i < 3; ++i) {
    send(request(document(kSlow)));
  }
  EXPECT_THAT(answers_, IsEmpty());
  for (int i = 0; i < 10000; ++i) {
    send(request(document(kSlow)));
  }
  EXPECT_THAT(answers_,
              AllOf(SizeIs(10000), Each(Field(&Outgoing::payload, HasSubstr(R"("code":"busy")")))));
  EXPECT_EQ(refusals(RequestError::kBusy), 10000U);
  EXPECT_EQ(kit_.sent().size(), 3U);
  kit_.advance(milliseconds(5000));
  answers_.clear();
  send(request(document(kRead)));
  EXPECT_THAT(answer().payload, Not(HasSubstr("error")));
}

TEST_F(RequestsTest, HoldsNoMoreBytesOfPendingRequestsThanItSays) {
  // Blanks behind the document.
  std::string large = document(kSlow);
  large.resize(Requests::kMostPayload, ' ');
  for (std::size_t bytes = 0; bytes < Requests::kMostPendingBytes; bytes += large.size()) {
    send(request(large));
  }
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_EQ(error(request(document(kSlow)))["code"], "busy");
}

TEST_F(RequestsTest, HoldsNoMoreMemoryOfSmallCellsThanItSays) {
  constexpr std::size_t kMany = 100;
  CQOV_MsgPackage asked;
  asked.head().type_ = QOVMsgHead::kRequest;
  asked.head().opc_ = kSlow;
  for (std::uint64_t i = 0; i < 10000; ++i) {
    CTLVRecordV3& record = i % 1000 == 0 ? asked.addRecord(1) : asked[asked.count() - 1];
    record.addUnsigned(1, 1);
  }
  Incoming message = request(common::bytesOfMessage(asked));
  message.contentType = kBytes;
  ASSERT_LT(kMany * message.payload.size(), Requests::kMostPendingBytes);
  for (std::size_t i = 0; i < kMany; ++i) {
    send(message);
  }
  EXPECT_GT(refusals(RequestError::kBusy), 0U);
}

TEST_F(RequestsTest, RefusesWhatIsTooLong) {
  std::string large = document(kRead);
  large.resize(Requests::kMostPayload, ' ');
  send(request(large));
  EXPECT_THAT(answer().payload, Not(HasSubstr("error")));
  const Json::Value told = error(request(large + " "));
  EXPECT_EQ(told["code"], "too-long");
  EXPECT_EQ(told["text"], "payload: 1048577 bytes, more than 1048576");

  Incoming message = request(document(kRead));
  message.correlation = std::string(Requests::kMostCorrelation, 'c');
  send(message);
  EXPECT_THAT(answer().payload, Not(HasSubstr("error")));
  message.correlation = std::string(65535, 'c');
  EXPECT_EQ(error(message)["text"], "correlation data: 65535 bytes, more than 1024");
  EXPECT_EQ(refusals(RequestError::kTooLong), 2U);
}

TEST_F(RequestsTest, TellsInPlaceOfAnAnswerThatItIsTooLong) {
  const auto answerWith = [this](std::size_t records) {
    kit_.answer(kReader, kRead, [records](const CQOV_MsgPackage&, CQOV_MsgPackage& answer) {
      for (std::size_t i = 0; i < records; ++i) {
        answer.addRecord(1).addString(1, std::string(60000, 'a'));
      }
    });
  };
  answerWith(17);
  send(request(document(kRead)));
  EXPECT_THAT(answer().payload, SizeIs(::testing::Gt(1000000U)));
  answerWith(18);
  EXPECT_EQ(error(request(document(kRead)))["code"], "bad-answer");
}

TEST_F(RequestsTest, TellsInPlaceOfAnAnswerThatTheBrokerDoesNotTakeIt) {
  kit_.answer(kReader, kRead, [](const CQOV_MsgPackage&, CQOV_MsgPackage& answer) {
    answer.addRecord(1).addString(1, std::string(1000, 'a'));
  });
  send(request(document(kRead)));
  requests_->tellTooLarge(answer());
  Outgoing told = answer();
  EXPECT_EQ(errorIn(told, request("").correlation)["code"], "bad-answer");
  EXPECT_EQ(requests_->counts().answered, 0U);
  EXPECT_EQ(refusals(RequestError::kBadAnswer), 1U);
  // That is too large as well.
  requests_->tellTooLarge(std::move(told));
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_EQ(requests_->counts().lost, 1U);
}

TEST_F(RequestsTest, CountsARefusalThatTheBrokerDoesNotTakeAsLost) {
  Incoming message = request(document(kRead));
  message.contentType = std::string(200, 'x');
  send(std::move(message));
  requests_->tellTooLarge(answer());
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_EQ(requests_->counts().answered, 0U);
  EXPECT_EQ(requests_->counts().lost, 1U);
  EXPECT_EQ(refusals(RequestError::kContentType), 1U);
  EXPECT_EQ(refusals(RequestError::kBadAnswer), 0U);
}

TEST_F(RequestsTest, AnswersNothingOutsideOfItsOwnTree) {
  for (const std::string& topic :
       {std::string(), std::string("qov/1/agent/response"), std::string("qov/1/agent/request/10"),
        std::string("qov/2/agent/response/me"), std::string("other/qov/1/agent/response/me"),
        std::string("qov/1/agent/response/+"), std::string("qov/1/agent/response/a/#"),
        std::string("qov/1/agent/response/\xff"),
        "qov/1/agent/response/" + std::string(Requests::kMostTopic, 'a')}) {
    Incoming message = request(document(kRead));
    message.responseTopic = topic;
    send(message);
  }
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_THAT(kit_.sent(), IsEmpty());
  EXPECT_EQ(requests_->counts().unanswerable, 9U);
  EXPECT_EQ(requests_->counts().received, 9U);
  EXPECT_THAT(kit_.process().log(),
              HasSubstr("Dropped a request on qov/1/agent/request/10, as its response topic \"\" "
                        "does not begin with qov/1/agent/response/ or has wildcards; 1 since"));
}

TEST_F(RequestsTest, LogsOneOfManyThatItDoesNotAnswer) {
  Incoming message = request("");
  message.responseTopic = "\x1b[2J" + std::string(60000, 'x');
  for (int i = 0; i < 10000; ++i) {
    send(message);
  }
  EXPECT_EQ(requests_->counts().unanswerable, 10000U);
  EXPECT_THAT(kit_.process().log(), AllOf(SizeIs(::testing::Lt(600U)), HasSubstr("; 1 since"),
                                          HasSubstr("\\x1b[2Jxxx"), Not(HasSubstr("\x1b"))));
}

TEST_F(RequestsTest, CountsAnAnswerForWhichThereIsNoRoom) {
  hasRoom_ = false;
  for (int i = 0; i < 5; ++i) {
    send(request(document(kRead)));
  }
  EXPECT_EQ(requests_->counts().lost, 5U);
  EXPECT_EQ(requests_->counts().answered, 5U);
  EXPECT_THAT(kit_.process().log(),
              HasSubstr("Dropped an answer for qov/1/agent/response/me: too many wait"));
}

}  // namespace
}  // namespace qov::mqtt
