// Who waits for whom, and who can never go on.
#include <gtest/gtest.h>

#include "modules/status/activity_snapshot.h"

namespace qov::status {
namespace {

using Circles = std::vector<std::vector<unsigned int>>;

class StatusOfWaits : public ::testing::Test {
 protected:
  StatusOfWaits() { snapshot.process = kProcess; }

  void module(unsigned int id, std::size_t workers, std::size_t busy) {
    QOVModuleStats stats;
    stats.moduleId_ = id;
    stats.workers_ = workers;
    stats.busy_ = busy;
    snapshot.modules.push_back(stats);
  }
  /// Thread `thread` of module `id` handles request `sn` of module `sender`.
  void handles(unsigned int id, int thread, std::uint32_t sn, std::uint8_t sender) {
    QOVRunningHandler handler;
    handler.moduleId_ = id;
    handler.thread_ = thread;
    handler.sn_ = sn;
    handler.senderProcess_ = kProcess;
    handler.sender_ = sender;
    snapshot.handlers.push_back(handler);
  }
  /// Thread `thread` of module `id` waits for the answer of `receiver` to request `sn`.
  void waits(unsigned int id, int thread, std::uint32_t sn, std::uint8_t receiver) {
    QOVWaitingRequest request;
    request.moduleId_ = id;
    request.thread_ = thread;
    request.sn_ = sn;
    request.receiverProcess_ = kProcess;
    request.receiver_ = receiver;
    request.waiting_ = std::chrono::hours(1);
    snapshot.requests.push_back(request);
  }
  /// Module 1, with so many workers, asks the only worker of module 2, which asks back.
  void bothWait(std::size_t workers, std::size_t busy) {
    module(1, workers, busy);
    module(2, 1, 1);
    handles(1, 11, 5, 9);
    waits(1, 11, 6, 2);
    handles(2, 21, 6, 1);
    waits(2, 21, 7, 1);
  }

  static constexpr std::uint8_t kProcess = 7;
  ActivitySnapshot snapshot;
};

TEST_F(StatusOfWaits, OfTwoModulesForEachOtherIsACircle) {
  bothWait(1, 1);
  EXPECT_EQ(circlesOf(snapshot), (Circles{{1, 2, 1}}));
}

TEST_F(StatusOfWaits, AnIdleWorkerMakesItNone) {
  bothWait(2, 1);
  EXPECT_EQ(circlesOf(snapshot), Circles{});
}

TEST_F(StatusOfWaits, AWorkerThatGoesOnMakesItNone) {
  bothWait(2, 2);
  handles(1, 12, 4, 9);
  EXPECT_EQ(circlesOf(snapshot), Circles{});
}

TEST_F(StatusOfWaits, ARequestThatIsWorkedOnMakesItNone) {
  module(1, 2, 2);
  module(2, 2, 2);
  handles(1, 11, 5, 9);
  waits(1, 11, 6, 2);
  handles(2, 21, 6, 1);
  handles(2, 22, 8, 9);
  waits(2, 22, 7, 1);
  handles(1, 12, 7, 2);
  EXPECT_EQ(circlesOf(snapshot), Circles{});
}

TEST_F(StatusOfWaits, OfAModuleForItselfIsACircle) {
  module(1, 1, 1);
  handles(1, 11, 5, 9);
  waits(1, 11, 6, 1);
  EXPECT_EQ(circlesOf(snapshot), (Circles{{1, 1}}));
}

TEST_F(StatusOfWaits, WhatLeadsToACircleIsNoPartOfIt) {
  for (const unsigned int id : {1U, 2U, 3U, 4U}) {
    module(id, 1, 1);
  }
  waits(9, 91, 3, 4);
  handles(4, 41, 3, 9);
  waits(4, 41, 4, 3);
  handles(3, 31, 4, 4);
  waits(3, 31, 5, 1);
  handles(1, 11, 5, 3);
  waits(1, 11, 6, 2);
  handles(2, 21, 6, 1);
  waits(2, 21, 7, 3);
  EXPECT_EQ(circlesOf(snapshot), (Circles{{1, 2, 3, 1}}));
}

TEST_F(StatusOfWaits, OfTwoPairsAreTwoCircles) {
  for (const unsigned int id : {1U, 2U, 3U, 4U}) {
    module(id, 1, 1);
  }
  for (const unsigned int id : {1U, 3U}) {
    const auto low = static_cast<std::uint8_t>(id);
    const auto high = static_cast<std::uint8_t>(id + 1);
    handles(low, 10 * low, 5, 9);
    waits(low, 10 * low, 60U + low, high);
    handles(high, 10 * high, 60U + low, low);
    waits(high, 10 * high, 70U + low, low);
  }
  EXPECT_EQ(circlesOf(snapshot), (Circles{{1, 2, 1}, {3, 4, 3}}));
}

TEST_F(StatusOfWaits, ForAnotherProcessOrLaterIsNone) {
  bothWait(1, 1);
  snapshot.requests[1].receiverProcess_ = kProcess + 1;
  EXPECT_EQ(circlesOf(snapshot), Circles{});
  snapshot.requests[1].receiverProcess_ = kProcess;
  snapshot.requests[1].thread_ = 0;
  EXPECT_EQ(circlesOf(snapshot), Circles{});
}

TEST_F(StatusOfWaits, ForAModuleThatHandlesNothingIsNone) {
  module(1, 1, 1);
  handles(1, 11, 5, 9);
  waits(1, 11, 6, 2);
  EXPECT_EQ(circlesOf(snapshot), Circles{});
}

/// The worker of module 2 has answered request 6 and taken up another one, 8; the answer is on its
/// way.
TEST_F(StatusOfWaits, AnAnswerThatIsOnItsWayMakesItNone) {
  bothWait(1, 1);
  snapshot.handlers[1].sn_ = 8;
  snapshot.handlers[1].sender_ = 9;
  snapshot.requests[1].waiting_ = std::chrono::milliseconds(999);
  EXPECT_EQ(circlesOf(snapshot), Circles{});
  // It would be there by now.
  snapshot.requests[1].waiting_ = std::chrono::milliseconds(1000);
  EXPECT_EQ(circlesOf(snapshot), (Circles{{1, 2, 1}}));
}

/// Module 2 may be about to take it up.
TEST_F(StatusOfWaits, ARequestThatHasJustBeenSentMakesItNone) {
  bothWait(1, 1);
  snapshot.requests[0].waiting_ = std::chrono::milliseconds(999);
  EXPECT_EQ(circlesOf(snapshot), Circles{});
}

/// Each thread handles a request of the one before it and waits for the next, through 250 modules
/// again and again. The last one waits for two that wait for each other.
TEST_F(StatusOfWaits, ManyThreadsMayLeadToACircle) {
  constexpr unsigned int kModules = 250;
  constexpr unsigned int kThreads = 12 * kModules;
  constexpr std::uint8_t kFirst = kModules;
  constexpr std::uint8_t kSecond = kModules + 1;
  const auto moduleOf = [](unsigned int thread) {
    return static_cast<std::uint8_t>(thread % kModules);
  };
  for (unsigned int i = 0; i < kThreads; ++i) {
    const int thread = static_cast<int>(kThreads - i);
    handles(moduleOf(i), thread, i, moduleOf(i + kModules - 1));
    waits(moduleOf(i), thread, i + 1, i + 1 < kThreads ? moduleOf(i + 1) : kFirst);
  }
  module(kFirst, 1, 1);
  handles(kFirst, kThreads + 1, kThreads + 2, kSecond);
  waits(kFirst, kThreads + 1, kThreads + 1, kSecond);
  module(kSecond, 1, 1);
  handles(kSecond, kThreads + 2, kThreads + 1, kFirst);
  waits(kSecond, kThreads + 2, kThreads + 2, kFirst);
  EXPECT_EQ(circlesOf(snapshot), (Circles{{kFirst, kSecond, kFirst}}));
  // The last one goes on, and so does everybody.
  snapshot.requests.pop_back();
  EXPECT_EQ(circlesOf(snapshot), Circles{});
}

TEST_F(StatusOfWaits, AreKnownByTheirThreadsAndSerialNumbers) {
  handles(1, 11, 5, 9);
  waits(1, 11, 6, 2);
  handles(2, 21, 6, 1);
  EXPECT_EQ(waitOf(snapshot.handlers[0], snapshot), &snapshot.requests[0]);
  EXPECT_EQ(waitOf(snapshot.handlers[1], snapshot), nullptr);
  EXPECT_EQ(handlerOf(snapshot.requests[0], snapshot), &snapshot.handlers[1]);
  snapshot.handlers[1].sn_ = 8;
  EXPECT_EQ(handlerOf(snapshot.requests[0], snapshot), nullptr);
}

}  // namespace
}  // namespace qov::status
