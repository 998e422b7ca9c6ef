// What modules tell each other, at the broker.
#include <csignal>

#include "tests/modules/mqtt/mqtt_fixture.h"

namespace qov::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

constexpr std::size_t kTold = 100;

class MqttCopies : public MqttTest {
 protected:
  void startsCopying(const std::string& what) {
    configure("Tls=0\nCopyMessages=" + what + "\n");
    startsWith({"chatter", "teller"});
  }
  void tells() {
    writeFile(agent.root().path() / "tell", "");
    EXPECT_TRUE(waitUntil([&] { return exists(agent.root().path() / "told"); })) << agent.log();
  }
  static std::vector<std::size_t> serials(const Watcher& watcher, const std::string& topic) {
    std::vector<std::size_t> all;
    for (const Seen& event : watcher.seen(topic)) {
      all.push_back(event.json()["records"][0]["cells"][0]["value"].get<std::size_t>());
    }
    return all;
  }
  static std::vector<std::size_t> allSerials() {
    std::vector<std::size_t> all;
    for (std::size_t serial = 1; serial <= kTold; ++serial) {
      all.push_back(serial);
    }
    return all;
  }
};

TEST_F(MqttCopies, ArePublishedByTheirSenderInTheirOrder) {
  const Watcher watcher(broker());
  startsCopying("42:*");
  tells();
  ASSERT_TRUE(watcher.waitFor("event/42/4097", kTold)) << agent.log();
  ASSERT_TRUE(watcher.waitFor("event/42/4098", kTold)) << agent.log();
  EXPECT_THAT(serials(watcher, "event/42/4097"), ElementsAreArray(allSerials()));
  EXPECT_THAT(serials(watcher, "event/42/4098"), ElementsAreArray(allSerials()));
  const nlohmann::json head = watcher.seen("event/42/4098").front().json()["head"];
  EXPECT_EQ(head["type"], 4);
  EXPECT_EQ(head["smid"], 42);
  EXPECT_EQ(head["rmid"], 251);
}

TEST_F(MqttCopies, AreOfTheListedOperationsAlone) {
  const Watcher watcher(broker());
  startsCopying("42:0x1002 1:4097");
  tells();
  ASSERT_TRUE(watcher.waitFor("event/42/4098", kTold)) << agent.log();
  EXPECT_THAT(serials(watcher, "event/42/4098"), ElementsAreArray(allSerials()));
  EXPECT_THAT(watcher.seen("event/42/4097"), IsEmpty());
  EXPECT_THAT(watcher.seen("event/1/"), IsEmpty());
}

TEST_F(MqttCopies, WaitForABrokerThatComesLater) {
  broker().stop(SIGTERM);
  startsCopying("42:4097");
  tells();
  stopsInOrder();
  broker().start();
  const Watcher watcher(broker());
  agent.start({"-n"});
  ASSERT_TRUE(watcher.waitFor("event/42/4097", kTold)) << agent.log();
  EXPECT_THAT(serials(watcher, "event/42/4097"), ElementsAreArray(allSerials()));
}

}  // namespace
}  // namespace qov::test
