#include "task/wait_reactor.h"

#include <ace/Reactor.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/latch.h"
#include "tests/support/sleeping_thread.h"

namespace {

class CountingHandler : public ACE_Event_Handler {
 public:
  int handle_output(ACE_HANDLE) override {
    ++outputs_;
    return result_;
  }
  int handle_timeout(const ACE_Time_Value&, const void* act) override {
    fired_.push_back(static_cast<const int*>(act));
    return 0;
  }
  int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override {
    ++closes_;
    return 0;
  }

  int result_ = 0;
  int outputs_ = 0;
  int closes_ = 0;
  std::vector<const int*> fired_;
};

/// A handler with a reactor of its own.
template <class Handler>
struct OwnReactor {
  ~OwnReactor() { handler_.reactor(nullptr); }

  int notify() { return reactor_.notify(&handler_, ACE_Event_Handler::WRITE_MASK); }

  Handler handler_;
  qov::WaitReactor impl_{handler_};
  ACE_Reactor reactor_{&impl_};
};

class WaitReactorTest : public ::testing::Test {
 protected:
  int handleWithoutWaiting() {
    ACE_Time_Value none;
    return reactor_.handle_events(&none);
  }

  OwnReactor<CountingHandler> own_;
  CountingHandler& handler_ = own_.handler_;
  ACE_Reactor& reactor_ = own_.reactor_;
};

}  // namespace

TEST_F(WaitReactorTest, ManyNotificationsOfOneHandlerAreOneCall) {
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(0, own_.notify());
  }
  EXPECT_EQ(1, handleWithoutWaiting());
  EXPECT_EQ(1, handler_.outputs_);
  EXPECT_EQ(0, handleWithoutWaiting());
}

TEST_F(WaitReactorTest, AnotherHandlerCannotBeNotified) {
  CountingHandler other;
  EXPECT_EQ(-1, reactor_.notify(&other, ACE_Event_Handler::WRITE_MASK));
  EXPECT_EQ(ENOTSUP, errno);
  EXPECT_EQ(0, handleWithoutWaiting());
  EXPECT_EQ(0, other.outputs_);
  other.reactor(nullptr);
}

TEST_F(WaitReactorTest, AFailingHandlerIsClosed) {
  handler_.result_ = -1;
  own_.notify();
  EXPECT_EQ(1, handleWithoutWaiting());
  EXPECT_EQ(1, handler_.closes_);
}

TEST_F(WaitReactorTest, ANotificationWakesTheOwner) {
  std::thread notifier([this] { own_.notify(); });
  EXPECT_EQ(1, reactor_.handle_events());
  notifier.join();
  EXPECT_EQ(1, handler_.outputs_);
}

TEST(WaitReactor, ASecondNotificationWakesTheOwnerWhileTheFirstOneIsCollected) {
  class Telling : public ACE_Event_Handler {
   public:
    int handle_output(ACE_HANDLE) override {
      called_.count();
      return 0;
    }
    Latch called_;
  };
  OwnReactor<Telling> own;
  std::thread owner([&own] {
    while (own.impl_.deactivated() == 0) {
      own.reactor_.handle_events();
    }
  });
  {
    // Many times, since the owner need not wait already when the first one comes.
    const qov::RingCollector collector;
    for (int i = 1; i <= 100; ++i) {
      own.notify();
      std::thread([&own] { own.notify(); }).join();
      if (!own.handler_.called_.waitFor(i)) {
        ADD_FAILURE() << "asleep at " << i;
        break;
      }
    }
  }
  own.reactor_.end_reactor_event_loop();
  owner.join();
}

TEST(WaitReactor, NoNotificationIsLostBetweenTwoThreads) {
  /// Sees how far the other thread has come.
  class Following : public ACE_Event_Handler {
   public:
    int handle_output(ACE_HANDLE) override {
      seen_ = sent_;
      return 0;
    }
    std::atomic<int> sent_{0};
    int seen_ = 0;
  };
  constexpr int kTimes = 20000;
  OwnReactor<Following> own;
  std::thread notifier([&own] {
    for (int i = 0; i < kTimes; ++i) {
      ++own.handler_.sent_;
      own.notify();
    }
  });
  while (own.handler_.seen_ < kTimes) {
    own.reactor_.handle_events();
  }
  notifier.join();
  ACE_Time_Value none;
  own.reactor_.handle_events(&none);
  EXPECT_EQ(0, own.reactor_.handle_events(&none));
}

TEST_F(WaitReactorTest, TimersFireInTheOrderOfTheirDelays) {
  const int later = 2;
  const int sooner = 1;
  ASSERT_NE(-1, reactor_.schedule_timer(&handler_, &later, ACE_Time_Value(0, 120000)));
  ASSERT_NE(-1, reactor_.schedule_timer(&handler_, &sooner, ACE_Time_Value(0, 30000)));
  while (handler_.fired_.size() < 2) {
    reactor_.handle_events();
  }
  EXPECT_EQ((std::vector<const int*>{&sooner, &later}), handler_.fired_);
}

TEST_F(WaitReactorTest, ACancelledTimerDoesNotFire) {
  const int act = 1;
  const long id = reactor_.schedule_timer(&handler_, &act, ACE_Time_Value(0, 10000));
  const long second = reactor_.schedule_timer(&handler_, nullptr, ACE_Time_Value(0, 20000));
  ASSERT_NE(-1, second);
  EXPECT_EQ(1, reactor_.cancel_timer(id));
  while (handler_.fired_.empty()) {
    reactor_.handle_events();
  }
  EXPECT_EQ(std::vector<const int*>{nullptr}, handler_.fired_);
}

TEST(WaitReactor, ATimerThatBecomesTheEarliestEndsTheWaitOnceAndOthersDoNot) {
  OwnReactor<CountingHandler> own;
  // Timers are used by one thread at a time.
  std::mutex turn;
  std::atomic<pid_t> id{0};
  std::atomic<int> waits{0};
  std::thread owner([&] {
    id = ::gettid();
    while (own.impl_.deactivated() == 0) {
      own.impl_.wait();
      ++waits;
      const std::lock_guard<std::mutex> held(turn);
      own.impl_.dispatch();
    }
  });
  const auto startTimer = [&](int seconds) {
    const std::lock_guard<std::mutex> held(turn);
    ASSERT_NE(-1, own.reactor_.schedule_timer(&own.handler_, nullptr, ACE_Time_Value(seconds)));
  };
  const auto waitsAfter = [&](int atLeast) {
    qov::test::waitForThread([&] { return waits >= atLeast && id != 0 && qov::test::sleeps(id); },
                             "sleeps");
    return waits.load();
  };
  waitsAfter(0);
  startTimer(1000);
  EXPECT_EQ(1, waitsAfter(1));
  for (int i = 1; i <= 100; ++i) {
    startTimer(1000 + i);
    EXPECT_EQ(1, waitsAfter(1));
  }
  startTimer(900);
  EXPECT_EQ(2, waitsAfter(2));
  own.reactor_.end_reactor_event_loop();
  owner.join();
}

TEST_F(WaitReactorTest, TheLongestDelayIsNotTakenForAPastOne) {
  ASSERT_NE(-1, reactor_.schedule_timer(&handler_, nullptr, ACE_Time_Value::max_time));
  EXPECT_EQ(0, handleWithoutWaiting());
  EXPECT_TRUE(handler_.fired_.empty());
}

TEST(WaitReactor, TimersFireWhileNotificationsNeverEnd) {
  class Restless : public CountingHandler {
   public:
    int handle_output(ACE_HANDLE) override {
      return reactor()->notify(this, ACE_Event_Handler::WRITE_MASK);
    }
  };
  OwnReactor<Restless> own;
  own.notify();
  ASSERT_NE(-1, own.reactor_.schedule_timer(&own.handler_, nullptr, ACE_Time_Value(0, 20000)));
  while (own.handler_.fired_.empty()) {
    own.reactor_.handle_events();
  }
}

TEST_F(WaitReactorTest, DeactivatingEndsTheWaitForGood) {
  std::thread ender([this] { reactor_.end_reactor_event_loop(); });
  EXPECT_EQ(-1, reactor_.handle_events());
  EXPECT_EQ(ESHUTDOWN, errno);
  ender.join();
  EXPECT_EQ(-1, reactor_.handle_events());
  EXPECT_NE(0, reactor_.reactor_event_loop_done());
}

TEST_F(WaitReactorTest, WhatNeedsADescriptorIsRefused) {
  EXPECT_EQ(-1, reactor_.register_handler(0, &handler_, ACE_Event_Handler::READ_MASK));
  EXPECT_EQ(ENOTSUP, errno);
}

TEST_F(WaitReactorTest, ItsEndLeavesTheSignalHandlersOfTheProcessAlone) {
  struct sigaction mine = {};
  mine.sa_handler = [](int) {};
  struct sigaction before = {};
  ASSERT_EQ(0, ::sigaction(SIGUSR1, &mine, &before));
  { const OwnReactor<CountingHandler> own; }
  struct sigaction after = {};
  ASSERT_EQ(0, ::sigaction(SIGUSR1, &before, &after));
  EXPECT_EQ(mine.sa_handler, after.sa_handler);
}
