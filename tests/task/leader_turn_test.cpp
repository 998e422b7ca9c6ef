#include "task/leader_turn.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "tests/support/latch.h"
#include "tests/support/sleeping_thread.h"

namespace {

constexpr std::size_t kMost = 64;

/// A queue that is a number.
class CountedWork : public qov::LeaderWork {
 public:
  std::size_t dispatchSome(std::size_t most) override {
    ++looks_;
    const std::size_t count = std::min(most, waiting_.load());
    waiting_ -= count;
    if (waiting_ > 0) {
      wakeOwnThread();
    }
    meanwhile_();
    return count;
  }

  void wakeOwnThread() override { ++wakes_; }

  std::atomic<std::size_t> waiting_{0};
  std::atomic<int> looks_{0};
  std::atomic<int> wakes_{0};
  std::function<void()> meanwhile_ = [] {};
};

class LeaderTurnTest : public ::testing::Test {
 protected:
  LeaderTurnTest() { turn_->open(); }

  void putAndWork(std::size_t count = 1) {
    work_.waiting_ += count;
    turn_->workHere(kMost);
  }

  /// Lets a sender do the work of two leaders, for whom so many messages wait.
  void leadFor(std::size_t first, std::size_t second) {
    const auto otherTurn = std::make_shared<qov::LeaderTurn>(other_, bell_);
    otherTurn->open();
    work_.waiting_ = first;
    other_.waiting_ = second;
    const qov::LeadingScope scope(true);
    qov::LeadingScope::defer(turn_);
    qov::LeadingScope::defer(otherTurn);
  }

  CountedWork work_;
  CountedWork other_;
  const std::shared_ptr<qov::Doorbell> bell_ = std::make_shared<qov::Doorbell>();
  const std::shared_ptr<qov::LeaderTurn> turn_ = std::make_shared<qov::LeaderTurn>(work_, bell_);
};

}  // namespace

TEST_F(LeaderTurnTest, ASenderDoesTheWorkThatNobodyIsAt) {
  putAndWork();
  EXPECT_EQ(0U, work_.waiting_);
  EXPECT_EQ(0, work_.wakes_);
}

TEST_F(LeaderTurnTest, WhoHasTheTurnLooksAgainForASenderThatFoundItTaken) {
  work_.meanwhile_ = [this] {
    if (work_.looks_ == 1) {
      std::thread([this] { putAndWork(); }).join();
      EXPECT_EQ(1U, work_.waiting_);
    }
  };
  putAndWork();
  EXPECT_EQ(2, work_.looks_);
  EXPECT_EQ(0U, work_.waiting_);
  EXPECT_EQ(0, work_.wakes_);
}

TEST_F(LeaderTurnTest, ASenderLooksAgainForSixtyFourMessagesAtTheMost) {
  work_.meanwhile_ = [this] { std::thread([this] { putAndWork(); }).join(); };
  putAndWork();
  EXPECT_EQ(64, work_.looks_);
  EXPECT_EQ(1U, work_.waiting_);
  EXPECT_EQ(1, work_.wakes_);
}

TEST_F(LeaderTurnTest, WhatComesWhileTheOwnThreadHasTheTurnIsLeftToIt) {
  turn_->takeOwn();
  putAndWork();
  EXPECT_EQ(0, work_.looks_);
  EXPECT_EQ(0, work_.wakes_);
  turn_->giveBack();
  EXPECT_EQ(1, work_.wakes_);
}

TEST_F(LeaderTurnTest, ASenderGoesOnWithItsOwnAffairsAfterSixtyFourMessages) {
  leadFor(60, 5);
  EXPECT_EQ(0U, work_.waiting_);
  EXPECT_EQ(1U, other_.waiting_);
  EXPECT_EQ(1, other_.wakes_);
}

TEST_F(LeaderTurnTest, ASenderThatHasDoneItsShareLeavesTheRestToTheirOwnThreads) {
  leadFor(64, 1);
  EXPECT_EQ(0U, work_.waiting_);
  EXPECT_EQ(0, other_.looks_);
  EXPECT_EQ(1, other_.wakes_);
}

TEST_F(LeaderTurnTest, TheOwnThreadIsToldOfWhatIsBeyondSixtyFourMessages) {
  putAndWork(64);
  EXPECT_EQ(0, work_.wakes_);
  putAndWork(65);
  EXPECT_EQ(1U, work_.waiting_);
  EXPECT_EQ(1, work_.wakes_);
}

TEST_F(LeaderTurnTest, WhatIsLeftToTheOwnThreadIsToldToItOrToWhoHasTheTurn) {
  turn_->leaveToOwnThread();
  EXPECT_EQ(1, work_.wakes_);
  turn_->takeOwn();
  turn_->leaveToOwnThread();
  EXPECT_EQ(1, work_.wakes_);
  turn_->giveBack();
  EXPECT_EQ(2, work_.wakes_);
  EXPECT_EQ(0, work_.looks_);
}

TEST_F(LeaderTurnTest, AThreadThatWaitsInItsScopeLeavesTheRestToOthers) {
  {
    const qov::LeadingScope scope(true);
    qov::LeadingScope::defer(turn_);
    qov::Doorbell bell;
    bell.ring();
    bell.wait();
    EXPECT_EQ(1, work_.wakes_);
  }
  EXPECT_EQ(0, work_.looks_);
}

TEST_F(LeaderTurnTest, NobodyButTheOwnThreadWorksOnceTheTurnIsClosed) {
  turn_->takeOwn();
  turn_->close();
  turn_->giveBack();
  putAndWork();
  EXPECT_EQ(0, work_.looks_);
  EXPECT_EQ(1U, work_.waiting_);
}

TEST_F(LeaderTurnTest, WhatComesBeforeTheTurnIsOpenIsToldTheOwnThreadThen) {
  const auto closed = std::make_shared<qov::LeaderTurn>(work_, bell_);
  closed->workHere(kMost);
  EXPECT_EQ(0, work_.looks_);
  closed->open();
  EXPECT_EQ(1, work_.wakes_);
}

TEST_F(LeaderTurnTest, TheOwnThreadComesBeforeOtherSenders) {
  Latch taken;
  std::thread own;
  std::atomic<pid_t> id{0};
  work_.meanwhile_ = [&] {
    if (work_.looks_ > 1) {
      return;
    }
    own = std::thread([&] {
      id = ::gettid();
      turn_->takeOwn();
      taken.count();
      turn_->giveBack();
    });
    qov::test::waitForThread([&id] { return id != 0 && qov::test::sleeps(id); }, "waits");
  };
  putAndWork();
  // Free, but promised: the sender leaves the message to the own thread, or comes after it.
  putAndWork();
  EXPECT_TRUE(taken.waitFor());
  own.join();
  EXPECT_EQ(1, work_.wakes_ + static_cast<int>(work_.looks_ == 2));
}

TEST_F(LeaderTurnTest, KnowsWhoHasIt) {
  EXPECT_FALSE(turn_->isMine());
  turn_->takeOwn();
  EXPECT_TRUE(turn_->isMine());
  std::thread([this] { EXPECT_FALSE(turn_->isMine()); }).join();
  turn_->giveBack();
  EXPECT_FALSE(turn_->isMine());
}

TEST_F(LeaderTurnTest, WithoutAScopeNobodyPutsWorkOff) {
  EXPECT_FALSE(qov::LeadingScope::defer(turn_));
  {
    const qov::LeadingScope inactive(false);
    EXPECT_FALSE(qov::LeadingScope::defer(turn_));
  }
}

TEST_F(LeaderTurnTest, AScopeWorksAtItsEndAndForWhomThatGivesWorkAfterIt) {
  CountedWork next;
  const auto nextTurn = std::make_shared<qov::LeaderTurn>(next, bell_);
  nextTurn->open();
  work_.meanwhile_ = [&] {
    next.waiting_ += 1;
    EXPECT_TRUE(qov::LeadingScope::defer(nextTurn));
  };
  {
    const qov::LeadingScope scope(true);
    work_.waiting_ += 1;
    EXPECT_TRUE(qov::LeadingScope::defer(turn_));
    const qov::LeadingScope inner(true);
    EXPECT_EQ(0, work_.looks_);
  }
  EXPECT_EQ(0U, work_.waiting_);
  EXPECT_EQ(0U, next.waiting_);
}

TEST_F(LeaderTurnTest, TwoLeadersThatKeepEachOtherBusyDoNotKeepTheSender) {
  CountedWork other;
  const auto otherTurn = std::make_shared<qov::LeaderTurn>(other, bell_);
  otherTurn->open();
  bool refused = false;
  work_.meanwhile_ = [&] { refused = !qov::LeadingScope::defer(otherTurn); };
  other.meanwhile_ = [&] { refused = !qov::LeadingScope::defer(turn_); };
  {
    const qov::LeadingScope scope(true);
    EXPECT_TRUE(qov::LeadingScope::defer(turn_));
  }
  EXPECT_TRUE(refused);
}

TEST_F(LeaderTurnTest, AThreadThatIsCancelledAtWorkGivesTheTurnBack) {
  Latch working;
  Latch cancelled;
  work_.meanwhile_ = [&] {
    working.count();
    EXPECT_TRUE(cancelled.waitFor());
    ::pthread_testcancel();
  };
  std::thread sender([this] {
    const qov::LeadingScope scope(true);
    qov::LeadingScope::defer(turn_);
  });
  ASSERT_TRUE(working.waitFor());
  ::pthread_cancel(sender.native_handle());
  cancelled.count();
  sender.join();
  work_.meanwhile_ = [] {};
  putAndWork();
  EXPECT_EQ(0U, work_.waiting_);
}

TEST_F(LeaderTurnTest, HasWorkWhileSomebodyHasTheTurnOrMessagesWaitForIt) {
  EXPECT_FALSE(turn_->progress(false).hasWork);
  EXPECT_TRUE(turn_->progress(true).hasWork);
  work_.meanwhile_ = [this] { EXPECT_TRUE(turn_->progress(false).hasWork); };
  putAndWork();
  EXPECT_EQ(1, work_.looks_);
  EXPECT_FALSE(turn_->progress(false).hasWork);
}

TEST_F(LeaderTurnTest, HasNoWorkThatNobodyIsToDo) {
  const qov::LeaderTurn closed(work_, bell_);
  EXPECT_FALSE(closed.progress(true).hasWork);
}

TEST_F(LeaderTurnTest, GetsOnWithEachTurn) {
  const unsigned int before = turn_->progress(false).steps;
  putAndWork();
  EXPECT_NE(before, turn_->progress(false).steps);
}
