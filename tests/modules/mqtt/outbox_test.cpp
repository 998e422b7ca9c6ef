#include "modules/mqtt/outbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/support/files.h"

namespace qov::test {
namespace {

using mqtt::DatabaseError;
using mqtt::Event;
using mqtt::Outbox;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MqttOutbox : public ::testing::Test {
 protected:
  MqttOutbox() { open(); }

  void open(const Outbox::Limits& limits = {1000, 1000000}) {
    outbox.reset();
    outbox = std::make_unique<Outbox>(file(), limits);
  }
  std::string file() const { return folder.file("events"); }

  static std::vector<Event> events(const std::vector<std::string>& payloads) {
    std::vector<Event> all;
    for (const std::string& payload : payloads) {
      all.push_back({40, 4097, true, payload});
    }
    return all;
  }
  std::uint64_t store(const std::vector<std::string>& payloads,
                      const std::vector<std::uint64_t>& taken = {}) {
    return outbox->commit(events(payloads), taken);
  }
  /// The number after so many others, and openings.
  static std::string afterReopen(std::uint64_t number, std::uint64_t times = 1) {
    return std::to_string(times * Outbox::kNumberStep + number);
  }
  std::vector<std::string> held() const {
    std::vector<std::string> all;
    std::uint64_t last = 0;
    while (const auto stored = outbox->next(last)) {
      all.push_back(std::to_string(stored->number) + stored->event.payload);
      last = stored->number;
    }
    return all;
  }

  const TemporaryDirectory folder;
  std::unique_ptr<Outbox> outbox;
};

TEST_F(MqttOutbox, HoldsEventsInTheirOrder) {
  EXPECT_EQ(store({"a", "b"}), 0U);
  EXPECT_EQ(store({"c"}), 0U);
  EXPECT_THAT(held(), ElementsAre("1a", "2b", "3c"));
}

TEST_F(MqttOutbox, HoldsAllOfAnEvent) {
  const std::string bytes("\0\xff\n", 3);
  outbox->commit({{255, 0xFFFFFFFFFFFFFFFFU, false, bytes}, {0, 0, true, ""}}, {});
  const auto first = outbox->next(0);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->event.module, 255U);
  EXPECT_EQ(first->event.opc, 0xFFFFFFFFFFFFFFFFU);
  EXPECT_FALSE(first->event.isText);
  EXPECT_EQ(first->event.payload, bytes);
  const auto second = outbox->next(1);
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->event.isText);
  EXPECT_EQ(second->event.payload, "");
}

TEST_F(MqttOutbox, ForgetsWhatWasTaken) {
  store({"a", "b", "c"});
  store({"d"}, {1, 3, 99});
  EXPECT_THAT(held(), ElementsAre("2b", "4d"));
  EXPECT_EQ(outbox->rows(), 2U);
  EXPECT_EQ(outbox->bytes(), 2 * (Outbox::kRowBytes + 1));
}

TEST_F(MqttOutbox, ForgetsWhatWasTakenInAnyOrder) {
  store({"a", "b", "c", "d", "e"});
  store({}, {5, 2, 3, 3, 9, 1});
  EXPECT_THAT(held(), ElementsAre("4d"));
  EXPECT_EQ(outbox->rows(), 1U);
  EXPECT_EQ(outbox->bytes(), Outbox::kRowBytes + 1);
}

TEST_F(MqttOutbox, IsReadOnAsItChanges) {
  store({"a", "b", "c"});
  open();
  EXPECT_EQ(outbox->next(0)->event.payload, "a");
  store({"d"}, {2});
  EXPECT_EQ(outbox->next(1)->event.payload, "c");
  const auto last = outbox->next(3);
  ASSERT_TRUE(last);
  EXPECT_EQ(last->event.payload, "d");
  EXPECT_FALSE(outbox->next(last->number));
  store({"e"});
  EXPECT_EQ(outbox->next(last->number)->event.payload, "e");
  EXPECT_EQ(outbox->next(0)->event.payload, "a");
}

TEST_F(MqttOutbox, IsAsItWasAfterAReopen) {
  store({"a", "bc"}, {});
  const std::string id = outbox->id();
  EXPECT_EQ(id.size(), 32U);
  open();
  EXPECT_THAT(held(), ElementsAre("1a", "2bc"));
  EXPECT_EQ(outbox->id(), id);
  EXPECT_EQ(outbox->rows(), 2U);
  EXPECT_EQ(outbox->bytes(), 2 * Outbox::kRowBytes + 3);
}

TEST_F(MqttOutbox, GivesNoNumberTwice) {
  store({"a", "b"});
  store({}, {1, 2});
  open();
  store({"c"});
  EXPECT_THAT(held(), ElementsAre(afterReopen(3) + "c"));
}

TEST_F(MqttOutbox, GivesNoNumberTwiceWithoutItsWriteAheadLog) {
  store({"a"});
  open();
  store({"b"});
  const std::string lost = readFile(file());
  EXPECT_THAT(held(), ElementsAre("1a", afterReopen(2) + "b"));
  outbox.reset();
  writeFile(file(), lost);
  open();
  store({"c"});
  EXPECT_THAT(held(), ElementsAre("1a", afterReopen(2, 2) + "c"));
}

TEST_F(MqttOutbox, DropsTheOldestBeyondItsRows) {
  open({3, 1000000});
  EXPECT_EQ(store({"a", "b", "c"}), 0U);
  EXPECT_EQ(store({"d", "e"}), 2U);
  EXPECT_THAT(held(), ElementsAre("3c", "4d", "5e"));
}

TEST_F(MqttOutbox, DropsTheOldestBeyondItsBytes) {
  open({1000, 3 * (Outbox::kRowBytes + 2)});
  EXPECT_EQ(store({"aa", "bb", "cc"}), 0U);
  EXPECT_EQ(store({"dd"}), 1U);
  EXPECT_EQ(store({"eee"}), 2U);
  EXPECT_THAT(held(), ElementsAre("4dd", "5eee"));
}

TEST_F(MqttOutbox, KeepsToSmallerLimitsAfterAReopen) {
  store({"a", "b", "c"});
  open({1, 1000000});
  EXPECT_EQ(store({"d"}), 3U);
  EXPECT_THAT(held(), ElementsAre(afterReopen(4) + "d"));
}

TEST_F(MqttOutbox, IsForOneProcessAndItsOwner) {
  store({"a"});
  EXPECT_THROW(Outbox(file(), {1, 1}), DatabaseError);
  EXPECT_EQ(std::filesystem::status(file()).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(MqttOutbox, RefusesADamagedFile) {
  outbox.reset();
  writeFile(file(), std::string(5000, 'x'));
  try {
    open();
    FAIL() << "opened";
  } catch (const DatabaseError& error) {
    EXPECT_TRUE(error.isCorrupt()) << error.what();
  }
}

TEST_F(MqttOutbox, RefusesAFileWithADamagedPage) {
  store(std::vector<std::string>(200, std::string(500, 'a')));
  outbox.reset();
  std::string content = readFile(file());
  ASSERT_GT(content.size(), 40000U);
  content.replace(8192, 8192, std::string(8192, 'z'));
  writeFile(file(), content);
  EXPECT_THROW(open(), DatabaseError);
}

TEST_F(MqttOutbox, StartsAnewBesideOneThatWasSetAside) {
  store({"a"});
  const std::string id = outbox->id();
  outbox.reset();
  EXPECT_EQ(mqtt::setOutboxAside(file()), file() + ".damaged");
  open();
  EXPECT_THAT(held(), IsEmpty());
  EXPECT_NE(outbox->id(), id);
}

TEST_F(MqttOutbox, SaysWhyItCannotBeOpened) {
  try {
    const Outbox refused(folder.file("none/events"), {1, 1});
    FAIL() << "opened";
  } catch (const DatabaseError& error) {
    EXPECT_FALSE(error.isCorrupt());
    EXPECT_STREQ(error.what(), "No such file or directory");
  }
}

}  // namespace
}  // namespace qov::test
