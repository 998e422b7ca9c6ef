// Requests of a client of a real broker to a module of a real agent.
#include <qovpub/qov_message_package.h>

#include <array>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "modules/common/message_payload.h"
#include "tests/modules/mqtt/mqtt_fixture.h"
#include "tests/modules/mqtt/requester.h"

namespace qov::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kRequests = "qov/7/qov_test_agent/request/";
constexpr const char* kResponses = "qov/7/qov_test_agent/response/me";
constexpr std::uint64_t kRepeat = 1;
constexpr std::uint64_t kIgnore = 2;
constexpr std::uint64_t kRefuse = 3;
constexpr std::uint64_t kUnlisted = 4;
constexpr std::size_t kMebibyte = std::size_t{1} << 20U;

class MqttRequests : public MqttTest {
 protected:
  void startsAllowing(const std::string& allowed, const std::string& more = "") {
    configure("Tls=0\n" + (allowed.empty() ? "" : "AllowRequests=" + allowed + "\n") + more);
    startsWith({"answerer"});
    ASSERT_TRUE(waitUntil([&] {
      return broker().log().find("Sending SUBACK to qov-qov_test_agent-7") != std::string::npos;
    })) << agent.log();
  }

  static std::string document(std::uint64_t opc) {
    return R"({"head":{"type":1,"opc":)" + std::to_string(opc) +
           R"(},"records":[{"cmd":9,"cells":[{"tag":1,"type":"Uint","value":17}]}]})";
  }

  static Question question(std::uint64_t opc, const std::string& correlation = "c") {
    Question asked;
    asked.topic = std::string(kRequests) + "41";
    asked.payload = document(opc);
    asked.responseTopic = kResponses;
    asked.correlation = correlation;
    return asked;
  }

  /// The code of the error that the question is answered with, or what else it is answered with.
  static std::string codeOf(const Told& told) {
    const nlohmann::json answer = nlohmann::json::parse(told.payload, nullptr, false);
    return answer.contains("error") ? answer["error"]["code"].get<std::string>() : told.payload;
  }

  static std::string padded(std::string payload, std::size_t size) {
    payload.resize(size, ' ');
    return payload;
  }

  /// The agent answers, whatever came before.
  static void isWell(Requester& requester) {
    const Told told = requester.ask(question(kRepeat, "well"));
    EXPECT_EQ(told.correlation, "well");
    EXPECT_THAT(told.payload, HasSubstr(R"("value":17)"));
  }
};

TEST_F(MqttRequests, AnsweredInTheFormOfTheRequest) {
  startsAllowing("41:1");
  Requester requester(broker(), kResponses);
  const Told text = requester.ask(question(kRepeat, std::string("\0\xff", 2)));
  EXPECT_EQ(text.contentType, "application/json");
  EXPECT_EQ(text.correlation, std::string("\0\xff", 2));
  const nlohmann::json answer = nlohmann::json::parse(text.payload);
  EXPECT_EQ(answer["head"]["type"], 2);
  EXPECT_EQ(answer["records"][0]["cells"][0]["value"], 17);

  Question bytes = question(kRepeat);
  bytes.payload = common::bytesOfMessage(*common::messageOfJson(document(kRepeat)));
  bytes.contentType = "application/vnd.qov.message";
  const Told told = requester.ask(bytes);
  EXPECT_EQ(told.contentType, "application/vnd.qov.message");
  EXPECT_EQ((*common::messageOfBytes(told.payload))[0].getUnsigned(1), 17U);
}

TEST_F(MqttRequests, ToldWhyThereIsNoAnswer) {
  startsAllowing("41:1,2,3 99:*");
  Requester requester(broker(), kResponses);
  EXPECT_EQ(codeOf(requester.ask(question(kUnlisted))), "not-allowed");
  Question asked = question(kRepeat);
  asked.topic = std::string(kRequests) + "99";
  EXPECT_EQ(codeOf(requester.ask(asked)), "no-module");
  asked.topic = std::string(kRequests) + "answerer";
  EXPECT_EQ(codeOf(requester.ask(asked)), "no-module");
  asked = question(kIgnore);
  asked.properties = {{"timeout", "50"}};
  EXPECT_EQ(codeOf(requester.ask(asked)), "timed-out");
  asked.properties = {{"timeout", "never"}};
  EXPECT_EQ(codeOf(requester.ask(asked)), "bad-timeout");
  asked = question(kRepeat);
  asked.contentType = "text/plain";
  EXPECT_EQ(codeOf(requester.ask(asked)), "content-type");
  const Told refused = requester.ask(question(kRefuse, "abc"));
  EXPECT_EQ(codeOf(refused), "refused");
  EXPECT_EQ(nlohmann::json::parse(refused.payload)["error"]["result"], 5);
  EXPECT_EQ(refused.correlation, "abc");
  isWell(requester);
}

TEST_F(MqttRequests, RefusedByDefault) {
  startsAllowing("");
  Requester requester(broker(), kResponses);
  EXPECT_EQ(codeOf(requester.ask(question(kRepeat))), "not-allowed");
}

TEST_F(MqttRequests, ToldWhatIsWrongWithBadInput) {
  startsAllowing("41:*");
  Requester requester(broker(), kResponses);
  for (const std::string& payload :
       {std::string(), std::string("{"), std::string(kMebibyte, '['), std::string("{\"\xff\":1}"),
        std::string("\xc3("), std::string("{}\0", 3),
        "{\"" + std::string(kMebibyte - 10, 'k') + "\":1}"}) {
    Question asked = question(kRepeat);
    asked.payload = payload;
    EXPECT_EQ(codeOf(requester.ask(asked)), "bad-message");
    asked.contentType = "application/vnd.qov.message";
    EXPECT_EQ(codeOf(requester.ask(asked)), "bad-message");
  }
  isWell(requester);
}

TEST_F(MqttRequests, RefusedIfTheyAreTooLong) {
  startsAllowing("41:*");
  Requester requester(broker(), kResponses);
  Question asked = question(kRepeat);
  asked.payload = padded(document(kRepeat), kMebibyte);
  EXPECT_THAT(requester.ask(asked).payload, HasSubstr(R"("value":17)"));
  asked.payload += " ";
  EXPECT_EQ(codeOf(requester.ask(asked)), "too-long");

  asked = question(kRepeat, std::string(1024, 'c'));
  EXPECT_THAT(requester.ask(asked).payload, HasSubstr(R"("value":17)"));
  asked.correlation = std::string(65535, 'c');
  const Told told = requester.ask(asked);
  EXPECT_EQ(codeOf(told), "too-long");
  EXPECT_EQ(told.correlation, asked.correlation);

  // The broker keeps this one, so that the next one's answer is the first.
  asked = question(kRepeat);
  asked.payload = padded(document(kRepeat), 3 * kMebibyte);
  requester.send(asked);
  isWell(requester);
}

TEST_F(MqttRequests, NotAnsweredOutsideOfTheAgentsTree) {
  startsAllowing("41:*");
  Requester everything(broker(), "#");
  const std::string longTopic = "qov/7/qov_test_agent/response/" + std::string(2000, 'x');
  for (const std::string& topic :
       {std::string(), std::string("qov/7/qov_test_agent/status"),
        std::string("qov/8/qov_test_agent/response/me"), std::string("elsewhere"),
        std::string("qov/7/qov_test_agent/response/+"),
        std::string("qov/7/qov_test_agent/response/#"), longTopic}) {
    Question asked = question(kRepeat);
    asked.responseTopic = topic;
    everything.send(asked);
  }
  ASSERT_TRUE(agent.waitForLog("; 1 since the start"));
  EXPECT_THAT(agent.log(), HasSubstr("Dropped a request on qov/7/qov_test_agent/request/41"));
  Requester requester(broker(), kResponses);
  isWell(requester);
  // The agent's status, seven questions and the last one with its answer.
  ASSERT_TRUE(everything.waitFor(10));
  int answers = 0;
  for (const Told& told : everything.takeAll()) {
    answers += told.payload.find(R"("type":2)") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(answers, 1);
}

TEST_F(MqttRequests, NotCarriedOutIfTheyAreRetained) {
  Requester requester(broker(), kResponses);
  Question asked = question(kRepeat, "old");
  asked.retain = true;
  requester.send(asked);
  startsAllowing("41:*");
  isWell(requester);
}

TEST_F(MqttRequests, AllAnsweredWhenTenThousandComeAtOnce) {
  constexpr std::size_t kMany = 10000;
  constexpr std::size_t kPending = 64;
  startsAllowing("41:*", "RequestsPending=64\nRequestMilliseconds=3000\n");
  Requester requester(broker(), kResponses);
  Question asked = question(kIgnore);
  asked.payload = padded(asked.payload, 4096);
  for (std::size_t i = 0; i < kMany; ++i) {
    asked.correlation = std::to_string(i);
    requester.send(asked);
  }
  ASSERT_TRUE(requester.waitFor(kMany)) << requester.takeAll().size();
  std::map<std::string, std::size_t> codes;
  std::set<std::string> senders;
  for (const Told& told : requester.takeAll()) {
    ++codes[codeOf(told)];
    senders.insert(told.correlation);
  }
  EXPECT_EQ(senders.size(), kMany);
  EXPECT_EQ(codes["busy"] + codes["timed-out"], kMany);
  EXPECT_GE(codes["timed-out"], kPending);
  isWell(requester);
  stopsInOrder();
  EXPECT_THAT(agent.log(), HasSubstr("Requests from the broker: 10001 have come, 1 answered"));
  EXPECT_THAT(agent.log(), HasSubstr(", busy " + std::to_string(codes["busy"])));
}

TEST_F(MqttRequests, CountedInTheStatus) {
  const Watcher watcher(broker());
  startsAllowing("41:1");
  Requester requester(broker(), kResponses);
  isWell(requester);
  EXPECT_TRUE(waitUntil([&] { return watcher.status()["requests"]["received"] == 1; }));
  EXPECT_EQ(codeOf(requester.ask(question(kUnlisted))), "not-allowed");
  Question unanswerable = question(kRepeat);
  unanswerable.responseTopic = "elsewhere";
  requester.send(unanswerable);
  isWell(requester);
  stopsInOrder();
  ASSERT_TRUE(isSeen(watcher, false));
  EXPECT_EQ(watcher.status()["requests"], nlohmann::json::parse(R"({"received":4,"answered":2,
      "dropped":1,"lost":0,"refused":{"not-allowed":1}})"));
}

TEST_F(MqttRequests, ThatWaitedForTheAgentAreAnsweredByModulesThatAreStillLoaded) {
  startsAllowing("41:1");
  stopsInOrder();
  Requester requester(broker(), kResponses);
  requester.send(question(kRepeat, "early"));
  agent.start({"-n"});
  ASSERT_TRUE(requester.waitFor(1));
  EXPECT_THAT(requester.takeAll().front().payload, HasSubstr(R"("value":17)"));
}

TEST_F(MqttRequests, HeldInBoundedMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own memory is larger than what is measured";
#else
  constexpr std::size_t kMany = 300;
  startsAllowing("41:*", "RequestMilliseconds=600000\n");
  Requester requester(broker(), kResponses);
  isWell(requester);
  const std::size_t before = agent.peakKilobytes();
  Question asked = question(kIgnore);
  asked.payload = padded(asked.payload, kMebibyte);
  for (std::size_t i = 0; i < kMany; ++i) {
    requester.send(asked);
  }
  // 8 MiB of them are pending.
  ASSERT_TRUE(requester.waitFor(kMany - 8));
  constexpr std::size_t kMostKilobytes = 64 * 1024;
  EXPECT_LT(agent.peakKilobytes() - before, kMostKilobytes);
#endif
}

TEST_F(MqttRequests, RefusedSettingsKeepTheAgentFromStarting) {
  for (const char* line : {"AllowRequests=41", "RequestsPending=1025", "RequestMilliseconds=0"}) {
    configure(std::string("Tls=0\n") + line + "\n");
    agent.useModules({});
    agent.start({"-n"});
    EXPECT_NE(agent.waitForEnd().exitStatus, 0) << line;
    EXPECT_THAT(agent.log() + agent.errors(), HasSubstr(std::string("[MQTT] ") + line + ": "));
  }
}

}  // namespace
}  // namespace qov::test
