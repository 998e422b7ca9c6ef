// The way of events from a module to the connection, which stands for the broker here.
#include "modules/mqtt/event_sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <mutex>
#include <thread>

#include "tests/modules/mqtt/slow_disk.h"
#include "tests/support/files.h"
#include "tests/support/process_end.h"
#include "tests/support/stderr_capture.h"

namespace qov::test {
namespace {

using mqtt::EventSender;
using mqtt::Outgoing;
using ::testing::ElementsAre;

/// While it lives no file of this process becomes larger than these bytes.
class SmallFiles {
 public:
  SmallFiles() : former_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &limit_);
    const rlimit small{100000, limit_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
  }
  ~SmallFiles() {
    ::setrlimit(RLIMIT_FSIZE, &limit_);
    std::signal(SIGXFSZ, former_);
  }
  SmallFiles(const SmallFiles&) = delete;
  SmallFiles& operator=(const SmallFiles&) = delete;

 private:
  void (*const former_)(int);
  rlimit limit_{};
};

class MqttEventSender : public ::testing::Test {
 protected:
  MqttEventSender() {
    settings.outbox = folder.file("data/events");
    make();
  }
  void make() {
    sender.reset();
    sender = std::make_unique<EventSender>(settings, mqtt::Topics("7", "agent"));
  }
  void start() {
    sender->start([this](Outgoing&& message) {
      const std::lock_guard lock(mutex);
      if (!hasRoom) {
        return false;
      }
      published.push_back(std::move(message));
      return true;
    });
  }
  void accept(const std::string& payload, EventSender::Receipt receipt = {}) {
    sender->accept({40, 4097, true, payload}, std::move(receipt));
  }
  std::vector<std::string> payloads() {
    const std::lock_guard lock(mutex);
    std::vector<std::string> all;
    for (const Outgoing& message : published) {
      all.push_back(message.payload);
    }
    return all;
  }
  bool publishes(std::size_t count) {
    return waitUntil([&] { return payloads().size() >= count; });
  }
  std::uint64_t token(std::size_t index) {
    const std::lock_guard lock(mutex);
    return published.at(index).number;
  }
  void setRoom(bool room) {
    const std::lock_guard lock(mutex);
    hasRoom = room;
  }

  const TemporaryDirectory folder;
  mqtt::Settings settings;
  std::mutex mutex;
  bool hasRoom = true;
  std::vector<Outgoing> published;
  std::unique_ptr<EventSender> sender;
};

TEST_F(MqttEventSender, PublishesAnEventWithItsNumberAndOutbox) {
  start();
  accept("{}");
  ASSERT_TRUE(publishes(1));
  const std::lock_guard lock(mutex);
  const Outgoing& message = published.front();
  EXPECT_EQ(message.topic, "qov/7/agent/event/40/4097");
  EXPECT_EQ(message.contentType, "application/json");
  EXPECT_TRUE(message.isText);
  ASSERT_EQ(message.properties.size(), 2U);
  EXPECT_EQ(message.properties[0], (std::pair<std::string, std::string>("number", "1")));
  EXPECT_EQ(message.properties[1].first, "outbox");
  EXPECT_EQ(message.properties[1].second.size(), 32U);
}

TEST_F(MqttEventSender, TellsThatAnEventIsStored) {
  start();
  std::atomic<int> told{-1};
  accept("a", [&](bool stored) { told = stored; });
  EXPECT_TRUE(waitUntil([&] { return told >= 0; }));
  EXPECT_EQ(told, 1);
  EXPECT_EQ(sender->counts().stored, 1U);
}

TEST_F(MqttEventSender, TellsWhichEventsAFullOutboxDropsAtOnce) {
  settings.outboxRows = 2;
  make();
  std::array<std::atomic<int>, 4> told{-1, -1, -1, -1};
  for (std::atomic<int>& one : told) {
    accept("a", [&one](bool stored) { one = stored; });
  }
  setRoom(false);
  start();
  ASSERT_TRUE(waitUntil([&] { return told[3] >= 0; }));
  EXPECT_EQ(told[0], 0);
  EXPECT_EQ(told[1], 0);
  EXPECT_EQ(told[2], 1);
  EXPECT_EQ(told[3], 1);
  EXPECT_EQ(sender->counts().dropped, 2U);
}

TEST_F(MqttEventSender, SendsAgainWhatWasNotAcknowledged) {
  start();
  accept("a");
  accept("b");
  ASSERT_TRUE(publishes(2));
  sender->settled(token(0), 0);
  make();
  published.clear();
  start();
  EXPECT_TRUE(publishes(1));
  EXPECT_THAT(payloads(), ElementsAre("b"));
}

TEST_F(MqttEventSender, StoresWhatItHasWhenItStops) {
  accept("a");
  start();
  sender->stop();
  make();
  published.clear();
  start();
  EXPECT_TRUE(publishes(1));
}

TEST_F(MqttEventSender, GoesOnWhenTheConnectionHasRoomAgain) {
  setRoom(false);
  start();
  accept("a");
  EXPECT_TRUE(waitUntil([&] { return sender->counts().stored == 1; }));
  setRoom(true);
  EXPECT_TRUE(publishes(1));
}

TEST_F(MqttEventSender, SendsAgainWhatTheBrokerForbids) {
  constexpr int kNotAuthorized = 135;
  start();
  accept("a");
  ASSERT_TRUE(publishes(1));
  sender->settled(token(0), kNotAuthorized);
  EXPECT_TRUE(publishes(2));
  EXPECT_THAT(payloads(), ElementsAre("a", "a"));
}

TEST_F(MqttEventSender, GoesOnPastAllThatTheBrokerForbids) {
  constexpr std::size_t kMany = 600;
  constexpr int kNotAuthorized = 135;
  for (std::size_t i = 0; i < kMany; ++i) {
    accept("forbidden");
  }
  accept("allowed");
  start();
  for (std::size_t i = 0; i < kMany; ++i) {
    ASSERT_TRUE(publishes(i + 1));
    sender->settled(token(i), kNotAuthorized);
  }
  ASSERT_TRUE(publishes(kMany + 1));
  EXPECT_EQ(payloads().at(kMany), "allowed");
  // Which the broker has not taken yet, while those before it go out again.
  ASSERT_TRUE(publishes(kMany + 2));
  EXPECT_EQ(payloads().at(kMany + 1), "forbidden");
}

TEST_F(MqttEventSender, DropsWhatNoBrokerTakes) {
  constexpr int kTooLarge = 149;
  start();
  accept("a");
  ASSERT_TRUE(publishes(1));
  sender->settled(token(0), kTooLarge);
  EXPECT_TRUE(waitUntil([&] { return sender->counts().dropped == 1; }));
  make();
  published.clear();
  start();
  accept("b");
  EXPECT_TRUE(publishes(1));
  EXPECT_THAT(payloads(), ElementsAre("b"));
}

TEST_F(MqttEventSender, RefusesAnEventThatIsTooLarge) {
  int told = -1;
  start();
  accept(std::string(EventSender::kMostEventBytes + 1, 'a'), [&](bool stored) { told = stored; });
  EXPECT_EQ(told, 0);
  accept(std::string(EventSender::kMostEventBytes, 'a'));
  EXPECT_TRUE(publishes(1));
}

TEST_F(MqttEventSender, RefusesAnEventThatCannotBeWritten) {
  int told = -1;
  accept("", [&](bool stored) { told = stored; });
  EXPECT_EQ(told, 0);
  EXPECT_EQ(sender->counts().dropped, 1U);
}

TEST_F(MqttEventSender, TellsOfManyEventsThatAreTooLargeOnce) {
  StderrCapture log;
  for (int i = 0; i < 100; ++i) {
    accept(std::string(EventSender::kMostEventBytes + 1, 'a'));
  }
  EXPECT_EQ(sender->counts().dropped, 100U);
  EXPECT_EQ(log.count("it has 1048577 bytes, more than 1048576; 1 so far"), 1);
}

TEST_F(MqttEventSender, TellsOnceOfADiskThatFailsInTurn) {
  StderrCapture log;
  start();
  for (int i = 0; i < 3; ++i) {
    std::atomic<int> told{-1};
    {
      const SmallFiles full;
      accept(std::string(200000, 'a'), [&](bool stored) { told = stored; });
      EXPECT_TRUE(waitUntil([&] { return told >= 0; }));
    }
    EXPECT_EQ(told, 0);
    EXPECT_TRUE(waitUntil([&] {
      told = -1;
      accept("small", [&](bool stored) { told = stored; });
      return waitUntil([&] { return told >= 0; }) && told == 1;
    }));
  }
  EXPECT_EQ(log.count("Failed to use the outbox"), 1);
  EXPECT_EQ(log.count("takes events again"), 1);
}

TEST_F(MqttEventSender, DropsTheOldestThatWaitForTheDisk) {
  int refused = 0;
  accept("first", [&](bool stored) { refused += stored ? 0 : 1; });
  for (std::size_t i = 0; i < EventSender::kMostWaiting; ++i) {
    accept("later");
  }
  EXPECT_EQ(refused, 1);
  EXPECT_EQ(sender->counts().dropped, 1U);
}

TEST_F(MqttEventSender, DropsTheOldestBeyondTheBytesThatMayWait) {
  const std::string large(EventSender::kMostEventBytes, 'a');
  constexpr std::size_t kFit = EventSender::kMostWaitingBytes / EventSender::kMostEventBytes;
  for (std::size_t i = 0; i < kFit; ++i) {
    accept(large);
  }
  EXPECT_EQ(sender->counts().dropped, 0U);
  accept("a");
  EXPECT_EQ(sender->counts().dropped, 1U);
}

TEST_F(MqttEventSender, KeepsEventsWhileTheDiskIsFull) {
  start();
  std::atomic<int> told{-1};
  {
    const SmallFiles full;
    accept(std::string(200000, 'a'), [&](bool stored) { told = stored; });
    EXPECT_TRUE(waitUntil([&] { return told >= 0; }));
    accept("kept");
    accept(std::string(200000, 'b'));
  }
  EXPECT_EQ(told, 0);
  EXPECT_TRUE(publishes(2));
  EXPECT_EQ(payloads().front(), "kept");
  EXPECT_EQ(sender->counts().dropped, 0U);
}

TEST_F(MqttEventSender, SaysAtTheEndWhatADiskThatHangsHasNotStored) {
  StderrCapture log;
  start();
  std::thread stopping;
  {
    const SlowDisk slow;
    accept("a");
    EXPECT_TRUE(SlowDisk::isWaitedFor());
    accept("b");
    stopping = std::thread([this] { sender->stop(); });
    EXPECT_TRUE(log.waitFor("and 2 events are not stored"));
    EXPECT_EQ(log.count("The outbox " + settings.outbox + " holds up the stop"), 1);
  }
  stopping.join();
  EXPECT_EQ(sender->counts().stored, 2U);
}

TEST_F(MqttEventSender, CountsNoneThatIsStoredAsNotStoredAtTheEnd) {
  StderrCapture log;
  std::atomic<bool> isHeldUp{false};
  std::atomic<bool> goesOn{false};
  sender->start([&](Outgoing&&) {
    isHeldUp = true;
    return waitUntil([&] { return goesOn.load(); });
  });
  accept("a");
  EXPECT_TRUE(waitUntil([&] { return isHeldUp.load(); }));
  std::thread stopping([this] { sender->stop(); });
  EXPECT_TRUE(log.waitFor("holds up the stop"));
  EXPECT_EQ(log.count("and 0 events are not stored"), 1);
  goesOn = true;
  stopping.join();
}

TEST_F(MqttEventSender, SaysAtTheEndWhatAFullDiskHasLost) {
  StderrCapture log;
  start();
  const SmallFiles full;
  accept(std::string(200000, 'a'));
  accept("b");
  EXPECT_TRUE(log.waitFor("Failed to use the outbox"));
  sender->stop();
  EXPECT_EQ(log.count("2 events are lost at the stop: the outbox " + settings.outbox +
                      " could not be used: "),
            1);
  EXPECT_EQ(sender->counts().dropped, 2U);
}

TEST_F(MqttEventSender, SaysAtTheEndHowManyItHasDropped) {
  StderrCapture log;
  start();
  accept("");
  accept("a");
  EXPECT_TRUE(log.waitFor("Events are dropped, 1 since the start"));
  accept("");
  sender->stop();
  EXPECT_EQ(log.count("Events are dropped, 2 since the start"), 1);
}

TEST_F(MqttEventSender, GoesOnOnlyWhenItCanReadItsOutboxAgain) {
  constexpr std::size_t kMoreThanSqliteKeeps = 4;
  StderrCapture log;
  setRoom(false);
  start();
  for (std::size_t i = 0; i < kMoreThanSqliteKeeps; ++i) {
    accept(std::string(EventSender::kMostEventBytes, 'a'));
  }
  ASSERT_TRUE(waitUntil([&] { return sender->counts().stored == kMoreThanSqliteKeeps; }));
  make();
  setRoom(true);
  {
    const UnreadableDisk unreadable;
    start();
    EXPECT_TRUE(UnreadableDisk::isTried(3));
    EXPECT_EQ(log.count("Failed to use the outbox"), 1);
    EXPECT_EQ(log.count("takes events again"), 0);
  }
  EXPECT_TRUE(publishes(kMoreThanSqliteKeeps));
  EXPECT_TRUE(log.waitFor("takes events again"));
}

TEST_F(MqttEventSender, SetsADamagedOutboxAside) {
  sender.reset();
  writeFile(settings.outbox, std::string(5000, 'x'));
  make();
  start();
  accept("a");
  EXPECT_TRUE(publishes(1));
  EXPECT_TRUE(std::filesystem::exists(settings.outbox + ".damaged"));
}

TEST_F(MqttEventSender, SaysWhyItHasNoOutbox) {
  sender.reset();
  writeFile(folder.file("file"), "");
  settings.outbox = folder.file("file/events");
  try {
    make();
    FAIL() << "made";
  } catch (const CQOV_Exception& failure) {
    EXPECT_THAT(failure.what(),
                ::testing::HasSubstr("Failed to open the outbox of MQTT: " + settings.outbox +
                                     ": its folder cannot be made: Not a directory"));
  }
}

}  // namespace
}  // namespace qov::test
