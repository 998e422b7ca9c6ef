// What an agent's status at the broker says.
#include <unistd.h>

#include <csignal>
#include <iterator>
#include <regex>

#include "tests/modules/mqtt/mqtt_fixture.h"

namespace qov::test {
namespace {

using ::testing::HasSubstr;

using MqttPresence = MqttTest;

TEST_F(MqttPresence, ToldWithVersionAndModules) {
  const Watcher watcher(broker());
  startsWith({"chatter"});
  ASSERT_TRUE(isSeen(watcher, true)) << agent.log();
  EXPECT_TRUE(waitUntil([&] { return watcher.status()["modules"].size() == 2; }));
  const nlohmann::json status = watcher.status();
  EXPECT_EQ(status["modules"][0], (nlohmann::json{{"id", 1}, {"name", "chatter"}}));
  EXPECT_EQ(status["modules"][1], (nlohmann::json{{"id", 251}, {"name", "mqtt"}}));
  EXPECT_FALSE(status["version"].get<std::string>().empty());
  EXPECT_THAT(status["since"], ::testing::MatchesRegex("....-..-..T..:..:..Z"));
  EXPECT_EQ(watcher.seen("/status").back().topic, kStatusTopic);
  EXPECT_EQ(watcher.seen("/status").back().contentType, "application/json");
}

TEST_F(MqttPresence, BelowTheNodeThatThePlatformTells) {
  configure("Tls=0\nNode=\n");
  agent.setEnvironment("PXOS_NODE_ID", "12");
  const Watcher watcher(broker());
  startsWith();
  EXPECT_TRUE(watcher.waitFor("qov/12/qov_test_agent/status"));
}

TEST_F(MqttPresence, RetainedForThoseWhoComeLater) {
  startsWith();
  ASSERT_TRUE(
      waitUntil([&] { return broker().log().find("Sending PUBACK") != std::string::npos; }));
  const Watcher watcher(broker());
  ASSERT_TRUE(isSeen(watcher, true));
  EXPECT_TRUE(watcher.seen(kStatusTopic).front().retained);
}

TEST_F(MqttPresence, OfflineAfterAnOrderlyStop) {
  const Watcher watcher(broker());
  startsWith();
  ASSERT_TRUE(isSeen(watcher, true));
  stopsInOrder();
  EXPECT_TRUE(isSeen(watcher, false));
  // It logs what it has passed on first.
  EXPECT_TRUE(waitUntil([&] {
    return broker().log().find("Received DISCONNECT from qov-qov_test_agent-7") !=
           std::string::npos;
  })) << broker().log();
}

TEST_F(MqttPresence, AnAgentStopsAtABrokerThatHangs) {
  startsWith();
  ASSERT_TRUE(agent.waitForLog("Connected to the broker"));
  broker().freeze();
  stopsInOrder();
  EXPECT_THAT(agent.log(), HasSubstr("has not acknowledged all messages at the end: "));
}

TEST_F(MqttPresence, RestsBetweenTheSignsOfLife) {
  configure("Tls=0\nKeepAliveSeconds=5\n");
  startsWith();
  const auto hasSigns = [this](int count) {
    const std::regex sign("Received PINGREQ");
    const std::string log = broker().log();
    return std::distance(std::sregex_iterator(log.begin(), log.end(), sign), {}) >= count;
  };
  ASSERT_TRUE(waitUntil([&] { return hasSigns(1); }));
  const long waits = agent.waitsOf("m251-mqtt");
  const long ticks = agent.ticksOf("m251-mqtt");
  EXPECT_GT(waits, 0);
  ASSERT_TRUE(waitUntil([&] { return hasSigns(2); }));
  const long after = agent.waitsOf("m251-mqtt");
  EXPECT_GT(after, waits);  // or the thread is gone
  // One turn a second, and few for the sign itself; hardly any time.
  EXPECT_LT(after - waits, 50);
  EXPECT_LT(agent.ticksOf("m251-mqtt") - ticks, ::sysconf(_SC_CLK_TCK));
}

TEST_F(MqttPresence, OfflineByTheLastWillOfAnAgentThatIsKilled) {
  const Watcher watcher(broker());
  startsWith();
  ASSERT_TRUE(isSeen(watcher, true));
  agent.send(SIGKILL);
  EXPECT_TRUE(isSeen(watcher, false));
}

TEST_F(MqttPresence, ToldAgainToABrokerThatWasKilled) {
  startsWith();
  ASSERT_TRUE(agent.waitForLog("Connected to the broker"));
  broker().stop(SIGKILL);
  ASSERT_TRUE(agent.waitForLog("Lost the connection to the broker"));
  ASSERT_TRUE(agent.waitForLog("Failed to connect to the broker"));
  broker().start();
  const Watcher watcher(broker());
  EXPECT_TRUE(isSeen(watcher, true));
}

TEST_F(MqttPresence, AnAgentStartsAndStopsWithoutABroker) {
  broker().stop(SIGTERM);
  startsWith();
  EXPECT_TRUE(agent.waitForLog("Failed to connect to the broker")) << agent.log();
  EXPECT_THAT(agent.log(), HasSubstr("Connection refused; look whether the broker runs"));
  stopsInOrder();
}

TEST_F(MqttPresence, TheSessionOutlivesAConnection) {
  startsWith();
  ASSERT_TRUE(agent.waitForLog(", a new session"));
  isKilledAndStartsAgain();
  EXPECT_TRUE(agent.waitForLog(", its former session"));
}

}  // namespace
}  // namespace qov::test
