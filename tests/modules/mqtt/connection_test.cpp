// What the connection does with a broker's limits, and with messages that it has not acknowledged.
#include "modules/mqtt/connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <regex>
#include <thread>

#include "modules/mqtt/settings.h"
#include "tests/modules/mqtt/no_new_clients.h"
#include "tests/modules/mqtt/scripted_broker.h"
#include "tests/modules/mqtt/watcher.h"
#include "tests/support/process_end.h"
#include "tests/support/stderr_capture.h"

namespace qov::test {
namespace {

using mqtt::Connection;
using mqtt::Outgoing;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

constexpr int kTooLarge = 149;

class MqttConnection : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoBroker(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }
  void TearDown() override { connection.reset(); }

  void connectTo(int port) {
    settings.port = port;
    settings.longestWait = std::chrono::seconds(1);
    handlers.settled = [this](std::uint64_t, int reason) {
      const std::lock_guard lock(mutex);
      reasons.push_back(reason < Connection::kFirstRefusal ? 0 : reason);
    };
    const auto online = [] { return std::string("{}"); };
    const auto offline = [this] {
      ++offlineAsked;
      return std::string("{}");
    };
    connection = std::make_unique<Connection>(
        settings, "client", mqtt::Presence{"qov/7/status", online, offline}, handlers, filters);
  }
  void startAt(const MqttBroker& broker) {
    connectTo(broker.port());
    ASSERT_TRUE(isOnline());
  }
  bool isOnline() {
    return waitUntil([&] { return connection->isOnline(); });
  }
  static Outgoing messageOf(const std::string& payload) {
    Outgoing message;
    message.topic = "qov/7/event";
    message.payload = payload;
    message.contentType = "text/plain";
    message.isText = true;
    message.properties = {{"number", "1"}, {"outbox", "abc"}};
    message.number = 1;
    return message;
  }
  static Outgoing answerOf(const std::string& payload) {
    Outgoing answer = messageOf(payload);
    answer.atMostOnce = true;
    return answer;
  }
  void publish(const std::string& payload) { ASSERT_TRUE(connection->publish(messageOf(payload))); }
  std::vector<int> settled() {
    const std::lock_guard lock(mutex);
    return reasons;
  }
  bool settles(std::size_t count) {
    return waitUntil([&] { return settled().size() >= count; });
  }

  static mqtt::Settings plain() {
    mqtt::Settings settings;
    settings.host = "127.0.0.1";
    settings.tls = false;
    return settings;
  }

  mqtt::Settings settings = plain();
  Connection::Handlers handlers;
  std::vector<std::string> filters;
  std::atomic<int> received{0};
  std::atomic<int> offlineAsked{0};
  std::mutex mutex;
  std::vector<int> reasons;
  std::string handedBack;
  std::unique_ptr<Connection> connection;
};

TEST_F(MqttConnection, RefusesEveryMessageThatIsLargerThanTheBrokerTakes) {
  constexpr std::size_t kLargest = 300;
  const MqttBroker broker("max_packet_size " + std::to_string(kLargest) + "\n");
  startAt(broker);
  for (std::size_t size = 1; size <= kLargest; ++size) {
    publish(std::string(size, 'a'));
  }
  ASSERT_TRUE(settles(kLargest));
  EXPECT_THAT(settled(), IsSupersetOf({0, kTooLarge}));
  EXPECT_EQ(connection->counts().connections, 1U);
}

TEST_F(MqttConnection, HandsBackAnAnswerThatIsLargerThanTheBrokerTakes) {
  const MqttBroker broker("max_packet_size 300\n");
  handlers.tooLarge = [this](Outgoing&& answer) {
    const std::lock_guard lock(mutex);
    handedBack = answer.payload;
  };
  startAt(broker);
  ASSERT_TRUE(connection->publish(answerOf(std::string(400, 'a'))));
  EXPECT_TRUE(waitUntil([&] {
    const std::lock_guard lock(mutex);
    return handedBack == std::string(400, 'a');
  }));
}

TEST_F(MqttConnection, RefusesWhatABrokerWithASmallerLimitDoesNotTakeAgain) {
  MqttBroker broker;
  startAt(broker);
  broker.freeze();
  publish(std::string(1000, 'a'));
  publish("b");
  broker.stop(SIGKILL);
  broker.startWith("max_packet_size 500\n");
  ASSERT_TRUE(settles(2));
  EXPECT_THAT(settled(), ElementsAre(kTooLarge, 0));
}

TEST_F(MqttConnection, TakesMoreWhenTheBrokerDoes) {
  MqttBroker broker("max_packet_size 500\n");
  startAt(broker);
  broker.stop(SIGTERM);
  broker.startWith("");
  ASSERT_TRUE(waitUntil([&] { return connection->counts().connections == 2; }));
  publish(std::string(1000, 'a'));
  ASSERT_TRUE(settles(1));
  EXPECT_THAT(settled(), Each(0));
}

TEST_F(MqttConnection, PublishesInTheirOrderWhatWasNotAcknowledged) {
  constexpr std::size_t kCount = 200;
  MqttBroker broker(kKeepsAll);
  startAt(broker);
  const Watcher watcher(broker);
  broker.saveSessions();
  broker.freeze();
  std::vector<std::string> payloads;
  for (std::size_t i = 0; i < kCount; ++i) {
    payloads.push_back(std::to_string(i));
    publish(payloads.back());
  }
  broker.stop(SIGKILL);
  broker.start();
  ASSERT_TRUE(watcher.waitFor("/event", kCount));
  std::vector<std::string> seen;
  for (const Seen& message : watcher.seen("/event")) {
    seen.push_back(message.payload);
  }
  EXPECT_EQ(seen, payloads);
}

TEST_F(MqttConnection, ReadsAllThatComesInOneRecordOfTls) {
  const MqttBroker certificates(MqttBroker::Security::kTls);
  settings.tls = true;
  settings.caFile = certificates.file("ca.crt");
  handlers.received = [this](mqtt::Incoming&&) {
    ++received;
    // As a call leaves it that finds no room; libmosquitto takes it for the end of what has come.
    errno = EWOULDBLOCK;
  };
  ScriptedBroker broker(certificates.file("broker.crt"), certificates.file("broker.key"));
  connectTo(broker.port());
  broker.takeClient();
  broker.send(connack() + publishOf() + publishOf() + publishOf());
  EXPECT_TRUE(waitUntil([&] { return received == 3; })) << received;
  broker.hangUp();
}

TEST_F(MqttConnection, BeginsANewSessionIfWhatWaitsInItsOwnCannotBeRead) {
  constexpr unsigned char kCleanStart = 2;
  // A response topic with a control character, which another broker may let through.
  const std::string poison = publishOf(std::string{'\x08', '\0', '\1', '\1'});
  ScriptedBroker broker;
  connectTo(broker.port());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(broker.takeClient() & kCleanStart, 0) << i;
    broker.send(connack(true) + poison);
    EXPECT_TRUE(broker.isLeft());
  }
  EXPECT_EQ(broker.takeClient() & kCleanStart, kCleanStart);
  broker.send(connack());
  ASSERT_TRUE(isOnline());
  broker.hangUp();
  EXPECT_EQ(broker.takeClient() & kCleanStart, 0);
  broker.hangUp();
}

TEST_F(MqttConnection, SaysThatTheBrokerRetainsNothing) {
  StderrCapture log;
  ScriptedBroker broker;
  connectTo(broker.port());
  broker.takeClient();
  broker.send(connack(false, std::string{'\x25', '\0'}));
  EXPECT_TRUE(log.waitFor("refuses a message: qov/7/status: Retain not supported (reason 154)"));
  broker.hangUp();
}

TEST_F(MqttConnection, SaysThatTheBrokerRefusesASubscription) {
  constexpr unsigned char kSubscribe = 0x82;
  constexpr unsigned char kSuback = 0x90;
  handlers.received = [this](mqtt::Incoming&&) { ++received; };
  filters = {"qov/7/request/+"};
  StderrCapture log;
  ScriptedBroker broker;
  connectTo(broker.port());
  broker.takeClient();
  broker.send(connack());
  const std::string asked = broker.readUntil(kSubscribe);
  const char noProperties = '\0';
  broker.send(packetOf(kSuback, asked.substr(2, 2) + noProperties + "\x87") + publishOf());
  // All else goes on.
  EXPECT_TRUE(waitUntil([&] { return received == 1; }));
  EXPECT_EQ(log.count("refuses a subscription: qov/7/request/+: Not authorized (reason 135)"), 1);
  broker.hangUp();
}

TEST_F(MqttConnection, EndsAConnectionWithAnAnswerToNoSubscription) {
  constexpr unsigned char kSubscribe = 0x82;
  constexpr unsigned char kSuback = 0x90;
  filters = {"qov/7/request/+"};
  // Not as the broker is silent.
  settings.keepAlive = std::chrono::hours(1);
  ScriptedBroker broker;
  connectTo(broker.port());
  broker.takeClient();
  broker.send(connack());
  const std::string asked = broker.readUntil(kSubscribe);
  const char noProperties = '\0';
  broker.send(packetOf(kSuback, asked.substr(2, 2) + noProperties));
  EXPECT_TRUE(broker.isLeft());
}

TEST_F(MqttConnection, PublishesTheAnswersThatWaitAtItsEnd) {
  constexpr std::size_t kMoreThanTheSocketsHold = 6000000;
  constexpr std::size_t kCount = 10;
  const MqttBroker broker("log_type all\n");
  startAt(broker);
  broker.freeze();
  ASSERT_TRUE(connection->publish(answerOf(std::string(kMoreThanTheSocketsHold, 'a'))));
  for (std::size_t i = 1; i < kCount; ++i) {
    ASSERT_TRUE(connection->publish(answerOf("b")));
  }
  const int askedBefore = offlineAsked;
  std::thread ending([this] { connection.reset(); });
  EXPECT_TRUE(waitUntil([&] { return offlineAsked > askedBefore; }));
  broker.goOn();
  ending.join();
  EXPECT_TRUE(waitUntil([&] {
    const std::regex answer("Received PUBLISH from client \\(d0, q0");
    const std::string log = broker.log();
    return std::distance(std::sregex_iterator(log.begin(), log.end(), answer), {}) == kCount;
  })) << broker.log();
}

TEST_F(MqttConnection, KeepsRoomForAnswersBesideAllOtherMessagesThatWait) {
  const ScriptedBroker silent;
  connectTo(silent.port());
  for (std::size_t i = 0; i < Connection::kMostPending; ++i) {
    publish("a");
  }
  EXPECT_FALSE(connection->publish(messageOf("a")));
  for (std::size_t i = 0; i < Connection::kMostPending; ++i) {
    ASSERT_TRUE(connection->publish(answerOf("b"))) << i;
  }
  EXPECT_FALSE(connection->publish(answerOf("b")));
}

TEST_F(MqttConnection, HoldsNoMoreBytesOfAnswersThanItSays) {
  const ScriptedBroker silent;
  connectTo(silent.port());
  EXPECT_TRUE(connection->publish(answerOf(std::string(Connection::kMostPendingBytes, 'a'))));
  EXPECT_FALSE(connection->publish(answerOf("b")));
  EXPECT_TRUE(connection->publish(messageOf("c")));
}

TEST_F(MqttConnection, TakesNoMoreRequestsOverTlsThanTheirAnswersHaveRoom) {
  constexpr int kRequests = 2000;
  const MqttBroker certificates(MqttBroker::Security::kTls);
  settings.tls = true;
  settings.caFile = certificates.file("ca.crt");
  std::promise<Connection*> made;
  handlers.received = [this, connected = made.get_future().share()](mqtt::Incoming&&) {
    static_cast<void>(connected.get()->publish(answerOf("a")));
    ++received;
  };
  ScriptedBroker broker(certificates.file("broker.crt"), certificates.file("broker.key"));
  connectTo(broker.port());
  made.set_value(connection.get());
  broker.takeClient();
  std::string all = connack();
  for (int i = 0; i < kRequests; ++i) {
    all += publishOf();
  }
  broker.send(all);
  EXPECT_TRUE(waitUntil([&] { return received == kRequests; })) << received;
  EXPECT_EQ(connection->counts().noRoom, 0U);
  broker.hangUp();
}

TEST_F(MqttConnection, TellsOnceOfEachOfTwoAddressesThatFailInTurn) {
  settings.host = "two.test";
  StderrCapture log;
  ScriptedBroker broker;
  connectTo(broker.port());
  for (int i = 0; i < 3; ++i) {
    broker.takeClient();
    broker.hangUp();
  }
  broker.takeClient();  // by now the third failure is behind it
  EXPECT_EQ(log.count("Failed to connect"), 2);
}

TEST_F(MqttConnection, GoesOnWhenThereWasNoMemoryForAConnection) {
  StderrCapture log;
  MqttBroker broker;
  startAt(broker);
  {
    const NoNewClients noMemory;
    broker.stop(SIGKILL);
    EXPECT_TRUE(log.waitFor("Cannot allocate memory"));
  }
  broker.start();
  EXPECT_TRUE(waitUntil([&] { return connection->counts().connections == 2; }));
}

TEST_F(MqttConnection, LooksForTheBrokerAtTheHostsOtherKindOfAddress) {
  settings.host = "two.test";
  const MqttBroker broker;
  connectTo(broker.port());
  EXPECT_TRUE(isOnline());
}

TEST_F(MqttConnection, NoticesABrokerThatHangsWhileMessagesComeOn) {
  settings.keepAlive = std::chrono::seconds(5);
  const MqttBroker broker;
  startAt(broker);
  broker.freeze();
  EXPECT_TRUE(waitUntil([&] {
    static_cast<void>(connection->publish(messageOf("a")));
    return !connection->isOnline();
  }));
}

}  // namespace
}  // namespace qov::test
