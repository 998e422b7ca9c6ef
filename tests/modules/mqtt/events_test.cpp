// Events of a real agent at a real broker, either of which is killed.
#include <qovpub/qov_message_package.h>

#include <csignal>
#include <map>
#include <set>

#include "modules/common/message_payload.h"
#include "tests/modules/mqtt/mqtt_fixture.h"

namespace qov::test {
namespace {

using ::testing::HasSubstr;

class MqttEvents : public MqttTest {
 protected:
  /// The numbers that the module has given to the events that were seen.
  static std::set<int> serials(const Watcher& watcher) {
    std::set<int> all;
    for (const Seen& event : watcher.seen(kEventTopic)) {
      all.insert(event.json()["records"][0]["cells"][0]["value"].get<int>());
    }
    return all;
  }
  bool allArrive(const Watcher& watcher) {
    return waitUntil([&] { return serials(watcher).size() >= static_cast<size_t>(stored()); });
  }
};

TEST_F(MqttEvents, AreJsonAsQovctlDecodes) {
  const Watcher watcher(broker());
  startsWith({"events"});
  sendsEvents(1);
  ASSERT_TRUE(watcher.waitFor(kEventTopic)) << agent.log();
  const Seen event = watcher.seen(kEventTopic).front();
  EXPECT_EQ(event.json()["head"]["smid"], 40);
  EXPECT_EQ(event.json()["head"]["opc"], 4097);
  EXPECT_EQ(event.json()["records"][0]["cmd"], 1);
  EXPECT_EQ(event.contentType, "application/json");
  EXPECT_TRUE(event.isText);
  EXPECT_FALSE(event.outbox.empty());
  EXPECT_FALSE(event.retained);
}

TEST_F(MqttEvents, AreBytesIfTheSectionSaysSo) {
  configure("Tls=0\nEventForm=bytes\n");
  const Watcher watcher(broker());
  startsWith({"events"});
  sendsEvents(1);
  ASSERT_TRUE(watcher.waitFor(kEventTopic)) << agent.log();
  const Seen event = watcher.seen(kEventTopic).front();
  EXPECT_EQ(event.contentType, "application/vnd.qov.message");
  EXPECT_FALSE(event.isText);
  CQOV_MsgPackage message;
  ASSERT_NE(message.decode(reinterpret_cast<const unsigned char*>(event.payload.data()),
                           static_cast<unsigned>(event.payload.size())),
            CQOV_MsgPackage::kFailed);
  EXPECT_EQ(message.head().smid_, 40);
  EXPECT_EQ(message.head().opc_, 4097U);
  EXPECT_EQ(message.count(), 1U);
}

TEST_F(MqttEvents, NoticesGoOutInTheirOrderBesideRequests) {
  const Watcher watcher(broker());
  startsWith({"events"});
  sendsEvents(100);
  ASSERT_TRUE(watcher.waitFor("event/40/4098", 100));
  ASSERT_TRUE(allArrive(watcher));
  std::uint64_t last = 0;
  for (const Seen& event : watcher.seen("event/40/")) {
    EXPECT_EQ(event.number, last + 1);
    last = event.number;
  }
}

TEST_F(MqttEvents, WaitForABrokerThatComesLater) {
  broker().stop(SIGTERM);
  startsWith({"events"});
  sendsEvents(20);
  stopsInOrder();
  broker().start();
  const Watcher watcher(broker());
  agent.start({"-n"});
  EXPECT_TRUE(allArrive(watcher));
}

TEST_F(MqttEvents, NoneIsLostWhenTheAgentIsKilled) {
  const Watcher watcher(broker());
  startsWith({"events"});
  for (int i = 0; i < 4; ++i) {
    sendsEvents(50);
    isKilledAndStartsAgain();
  }
  sendsEvents(50);
  EXPECT_TRUE(allArrive(watcher));
  std::set<std::string> outboxes;
  std::map<std::uint64_t, std::string> payloads;
  for (const Seen& event : watcher.seen("/event/")) {
    outboxes.insert(event.outbox);
    const auto [known, isFirst] = payloads.emplace(event.number, event.payload);
    EXPECT_TRUE(isFirst || known->second == event.payload) << "a number was used twice";
  }
  EXPECT_EQ(outboxes.size(), 1U);
}

TEST_F(MqttEvents, NoneIsLostWhenTheBrokerIsKilled) {
  const Watcher watcher(broker());
  broker().saveSessions();
  startsWith({"events"});
  for (int i = 0; i < 3; ++i) {
    sendsEvents(50);
    // What it has acknowledged and nobody has fetched is lost with it.
    ASSERT_TRUE(allArrive(watcher)) << agent.log();
    broker().freeze();
    sendsEvents(100);
    broker().stop(SIGKILL);
    sendsEvents(50);
    broker().start();
    ASSERT_TRUE(allArrive(watcher)) << agent.log();
  }
}

TEST_F(MqttEvents, AFullOutboxDropsTheOldestAndSaysSo) {
  // Few: each waits for the disk, which is slow on a machine that is busy.
  constexpr int kCount = 20;
  configure("Tls=0\nOutboxRows=10\n");
  broker().stop(SIGTERM);
  startsWith({"events"});
  sendsEvents(kCount);
  EXPECT_TRUE(agent.waitForLog("Events are dropped, "));
  stopsInOrder();
  broker().start();
  const Watcher watcher(broker());
  agent.start({"-n"});
  ASSERT_TRUE(watcher.waitFor("event/40/4098"));
  EXPECT_TRUE(waitUntil([&] { return serials(watcher).count(kCount) == 1; }));
  EXPECT_EQ(serials(watcher).count(1), 0U);
}

TEST_F(MqttEvents, OneThatIsTooLargeIsRefusedByTheSizeOfItsBytes) {
  CQOV_MsgPackage large;
  for (int i = 0; i < 20; ++i) {
    large.addRecord(1).addString(1, std::string(60000, '\n'));
  }
  writeFile(agent.root().path() / "large", "");
  startsWith({"events"});
  EXPECT_TRUE(agent.waitForLog("module 40, operation 4099: it has " +
                               std::to_string(common::sizeOfMessage(large)) +
                               " bytes, more than 1048576; 1 so far"))
      << agent.log();
}

TEST_F(MqttEvents, ADamagedOutboxIsSetAside) {
  writeFile(agent.root().path() / "data" / "qov_test_agent.outbox", std::string(9000, 'x'));
  const Watcher watcher(broker());
  startsWith({"events"});
  sendsEvents(1);
  EXPECT_TRUE(allArrive(watcher));
  EXPECT_THAT(agent.log(), HasSubstr("qov_test_agent.outbox is damaged: "));
  EXPECT_EQ(readFile(agent.root().path() / "data" / "qov_test_agent.outbox.damaged").size(), 9000U);
}

}  // namespace
}  // namespace qov::test
