#include "task/message_trace.h"

#include <gtest/gtest.h>
#include <qovpub/qov_request.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/answering_modules.h"
#include "tests/task/task_fixture.h"

namespace {

using Step = QOVTraceEvent::Step;
using Place = std::pair<Step, int>;

constexpr std::uint64_t kOpc = 5;

/// All events from `first` on that have `opc`, whose last is one of `until`.
std::vector<QOVTraceEvent> eventsOf(std::uint64_t first, std::uint64_t opc, const Place& until) {
  std::vector<QOVTraceEvent> events;
  do {
    events = QOVMessageTrace::read(first).events_;
    events.erase(std::remove_if(events.begin(), events.end(),
                                [=](const QOVTraceEvent& event) { return event.opc_ != opc; }),
                 events.end());
  } while (std::none_of(events.begin(), events.end(), [&](const QOVTraceEvent& event) {
    return Place(event.step_, event.module_) == until;
  }));
  return events;
}

/// The places that messages of `type` came by, in this order.
std::vector<Place> wayOf(const std::vector<QOVTraceEvent>& events, int type) {
  std::vector<Place> way;
  for (const QOVTraceEvent& event : events) {
    if (event.type_ == type) {
      way.emplace_back(event.step_, event.module_);
    }
  }
  return way;
}

class MessageTraceTest : public TaskTest {
 protected:
  MessageTraceTest() : modules_(agentRoot()) {}
  ~MessageTraceTest() override {
    QOVMessageTrace::stop();
    agentRoot().removeModules();
  }

  AnsweringModules modules_;
  CQOV_Task asker_{modules_.first()};
};

constexpr int kFirst = AnsweringModules::kFirst;
constexpr int kSecond = AnsweringModules::kSecond;

/// Makes `count` events whose fields all tell the same number, from `begin` on.
void makeEvents(std::uint32_t begin, std::uint32_t count) {
  for (std::uint32_t number = begin; number < begin + count; ++number) {
    qov::TracedMessage message;
    message.opc_ = number;
    message.sn_ = number;
    message.smid_ = static_cast<std::uint8_t>(number);
    message.rmid_ = static_cast<std::uint8_t>(number);
    qov::trace(Step::kSend, message.smid_, message);
  }
}

}  // namespace

TEST_F(MessageTraceTest, HasEachStepOfARequestAndItsResponse) {
  const std::uint64_t first = QOVMessageTrace::start();
  EXPECT_TRUE(QOVMessageTrace::isOn());
  const auto before = QOVTraceEvent::Clock::now();
  auto message = makeMessage(1, kOpc, kSecond, kFirst);
  const std::uint32_t sn = message->head().sn_;
  ASSERT_EQ(0, request(asker_, std::move(message), kLong));
  const auto events = eventsOf(first, kOpc, {Step::kHandleEnd, kSecond});
  EXPECT_EQ((std::vector<Place>{{Step::kSend, kFirst},
                                {Step::kDispatch, kFirst},
                                {Step::kDispatch, kSecond},
                                {Step::kHandleBegin, kSecond},
                                {Step::kHandleEnd, kSecond}}),
            wayOf(events, QOVMsgHead::kRequest));
  EXPECT_EQ((std::vector<Place>{{Step::kSend, kSecond},
                                {Step::kDispatch, kSecond},
                                {Step::kDispatch, kFirst},
                                {Step::kAnswer, kFirst}}),
            wayOf(events, QOVMsgHead::kResponse));
  for (const QOVTraceEvent& event : events) {
    EXPECT_EQ(sn, event.sn_);
    EXPECT_LE(before, event.time_);
    EXPECT_GE(QOVTraceEvent::Clock::now(), event.time_);
  }
  EXPECT_EQ(::gettid(), events.front().thread_);
  EXPECT_EQ(kFirst, events.front().smid_);
  EXPECT_EQ(kSecond, events.front().rmid_);
}

TEST_F(MessageTraceTest, HasNothingOfWhatIsSentWhileItIsOff) {
  const std::uint64_t first = QOVMessageTrace::start();
  QOVMessageTrace::stop();
  EXPECT_FALSE(QOVMessageTrace::isOn());
  ASSERT_EQ(0, request(asker_, makeMessage(1, kOpc, kSecond, kFirst), kLong));
  EXPECT_EQ(first, QOVMessageTrace::read(first).next_);
}

TEST_F(MessageTraceTest, HasOnlyTheMessagesOfTheChosenModule) {
  TestModule other(ignore);
  ASSERT_TRUE(other.init());
  CQOV_Task alone(&other);
  const std::uint64_t first = QOVMessageTrace::start(kSecond);
  ASSERT_EQ(0, alone.send(makeMessage(3, kOpc + 1).release(), nullptr, true));
  ASSERT_EQ(0, request(asker_, makeMessage(1, kOpc, kSecond, kFirst), kLong));
  other.stop();
  EXPECT_EQ(9U, eventsOf(first, kOpc, {Step::kHandleEnd, kSecond}).size());
  for (const QOVTraceEvent& event : QOVMessageTrace::read(first).events_) {
    EXPECT_EQ(kOpc, event.opc_);
  }
}

TEST_F(MessageTraceTest, HasTheRequestThatGotNoResponseInTime) {
  TestModule silent(ignore);
  ASSERT_TRUE(silent.init());
  CQOV_Task asker(&silent);
  const std::uint64_t first = QOVMessageTrace::start();
  ASSERT_EQ(-1, request(asker, makeMessage(1, kOpc), ACE_Time_Value(0, 1000)));
  const auto events = eventsOf(first, kOpc, {Step::kTimeOut, kModule});
  const std::vector<Place> way = wayOf(events, QOVMsgHead::kRequest);
  EXPECT_EQ(1, std::count(way.begin(), way.end(), Place{Step::kTimeOut, kModule}));
}

TEST_F(MessageTraceTest, HasTheDroppedMessageAndWhy) {
  const std::uint64_t first = QOVMessageTrace::start();
  constexpr std::uint8_t kNobody = 199;
  ASSERT_EQ(0, asker_.send(makeMessage(3, kOpc, kNobody, kFirst).release(), nullptr, true));
  const auto events = eventsOf(first, kOpc, {Step::kDrop, kFirst});
  EXPECT_EQ(
      (std::vector<Place>{{Step::kSend, kFirst}, {Step::kDispatch, kFirst}, {Step::kDrop, kFirst}}),
      wayOf(events, QOVMsgHead::kNotice));
  EXPECT_EQ(QOVDropReason::kNoReceiver, events.back().reason_);
  EXPECT_EQ(kNobody, events.back().rmid_);
}

TEST_F(MessageTraceTest, HasTheMessageThatALeaderLeavesAtItsStop) {
  TestModule never(ignore);
  CQOV_Task sender(&never);
  const std::uint64_t first = QOVMessageTrace::start();
  ASSERT_EQ(0, sender.send(makeMessage(3, kOpc).release(), nullptr, true));
  never.stop();
  const auto events = QOVMessageTrace::read(first).events_;
  ASSERT_EQ((std::vector<Place>{{Step::kSend, kModule}, {Step::kDrop, kModule}}),
            wayOf(events, QOVMsgHead::kNotice));
  EXPECT_EQ(QOVDropReason::kStopped, events.back().reason_);
}

TEST_F(MessageTraceTest, HasTheContinuationOfAskLater) {
  const std::uint64_t first = QOVMessageTrace::start();
  ASSERT_EQ(
      QOVReason::kNone,
      QOVRequest(asker_, kSecond, kOpc).askLater(std::chrono::minutes(1), [](const QOVAnswer&) {}));
  const auto events = eventsOf(first, kOpc, {Step::kHandleEnd, kFirst});
  EXPECT_EQ((std::vector<Place>{{Step::kSend, kSecond},
                                {Step::kDispatch, kSecond},
                                {Step::kDispatch, kFirst},
                                {Step::kAnswer, kFirst},
                                {Step::kHandleBegin, kFirst},
                                {Step::kHandleEnd, kFirst}}),
            wayOf(events, QOVMsgHead::kResponse));
}

TEST(MessageTraceRing, KeepsTheNewestEventsAndCountsTheOthers) {
  constexpr std::uint32_t kMore = 7;
  const std::uint64_t first = QOVMessageTrace::start();
  makeEvents(0, QOVMessageTrace::kRoom + kMore);
  QOVMessageTrace::stop();
  const auto part = QOVMessageTrace::read(first);
  EXPECT_EQ(kMore, part.lost_);
  ASSERT_EQ(QOVMessageTrace::kRoom, part.events_.size());
  EXPECT_EQ(kMore, part.events_.front().opc_);
  EXPECT_EQ(kMore + QOVMessageTrace::kRoom - 1, part.events_.back().opc_);
  EXPECT_EQ(first + QOVMessageTrace::kRoom + kMore, part.next_);
}

TEST(MessageTraceRing, IsReadInParts) {
  const std::uint64_t first = QOVMessageTrace::start();
  makeEvents(0, 5);
  QOVMessageTrace::stop();
  const auto part = QOVMessageTrace::read(first, 3);
  EXPECT_EQ(3U, part.events_.size());
  EXPECT_EQ(0U, part.lost_);
  const auto rest = QOVMessageTrace::read(part.next_, 3);
  ASSERT_EQ(2U, rest.events_.size());
  EXPECT_EQ(3U, rest.events_.front().opc_);
  EXPECT_TRUE(QOVMessageTrace::read(rest.next_).events_.empty());
}

TEST(MessageTraceRing, GivesWholeEventsWhileThreadsAddOthers) {
  constexpr std::uint32_t kThreads = 4;
  constexpr std::uint32_t kEach = 100000;
  std::uint64_t next = QOVMessageTrace::start();
  const std::uint64_t end = next + kThreads * kEach;
  std::vector<std::thread> threads;
  for (std::uint32_t i = 0; i < kThreads; ++i) {
    threads.emplace_back(makeEvents, i * kEach, kEach);
  }
  std::uint64_t events = 0;
  std::uint64_t lost = 0;
  std::map<pid_t, std::uint64_t> last;
  while (next < end) {
    const auto part = QOVMessageTrace::read(next, 1000);
    for (const QOVTraceEvent& event : part.events_) {
      ASSERT_EQ(event.opc_, event.sn_);
      ASSERT_EQ(static_cast<std::uint8_t>(event.opc_), event.module_);
      ASSERT_EQ(event.module_, event.rmid_);
      const auto known = last.find(event.thread_);
      ASSERT_TRUE(known == last.end() || known->second < event.opc_);
      last[event.thread_] = event.opc_;
    }
    next = part.next_;
    events += part.events_.size();
    lost += part.lost_;
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  QOVMessageTrace::stop();
  EXPECT_EQ(kThreads * kEach, events + lost);
  EXPECT_LT(0U, events);
}
