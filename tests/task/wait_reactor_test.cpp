#include "task/wait_reactor.h"

#include <ace/Reactor.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <thread>
#include <vector>

#include "tests/support/latch.h"

namespace {

class CountingHandler : public ACE_Event_Handler {
 public:
  int handle_output(ACE_HANDLE) override {
    ++outputs_;
    return result_;
  }
  int handle_input(ACE_HANDLE) override {
    ++inputs_;
    return 0;
  }
  int handle_exception(ACE_HANDLE) override {
    ++exceptions_;
    return 0;
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
  int inputs_ = 0;
  int exceptions_ = 0;
  int closes_ = 0;
  std::vector<const int*> fired_;
};

class WaitReactorTest : public ::testing::Test {
 protected:
  WaitReactorTest() : reactor_(&impl_) {}
  ~WaitReactorTest() override { handler_.reactor(nullptr); }

  int handleWithoutWaiting() {
    ACE_Time_Value none;
    return reactor_.handle_events(&none);
  }

  qov::WaitReactor impl_;
  ACE_Reactor reactor_;
  CountingHandler handler_;
};

}  // namespace

TEST_F(WaitReactorTest, ManyNotificationsOfOneHandlerAreOneCall) {
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(0, reactor_.notify(&handler_, ACE_Event_Handler::WRITE_MASK));
  }
  EXPECT_EQ(1, handleWithoutWaiting());
  EXPECT_EQ(1, handler_.outputs_);
  EXPECT_EQ(0, handleWithoutWaiting());
}

TEST_F(WaitReactorTest, CallsWhatTheMaskSays) {
  reactor_.notify(&handler_, ACE_Event_Handler::READ_MASK);
  reactor_.notify(&handler_, ACE_Event_Handler::EXCEPT_MASK);
  EXPECT_EQ(2, handleWithoutWaiting());
  EXPECT_EQ(1, handler_.inputs_);
  EXPECT_EQ(1, handler_.exceptions_);
}

TEST_F(WaitReactorTest, AFailingHandlerIsClosed) {
  handler_.result_ = -1;
  reactor_.notify(&handler_, ACE_Event_Handler::WRITE_MASK);
  EXPECT_EQ(1, handleWithoutWaiting());
  EXPECT_EQ(1, handler_.closes_);
}

TEST_F(WaitReactorTest, PurgedNotificationsAreNotDispatched) {
  CountingHandler other;
  reactor_.notify(&handler_, ACE_Event_Handler::WRITE_MASK);
  reactor_.notify(&other, ACE_Event_Handler::WRITE_MASK);
  EXPECT_EQ(1, reactor_.purge_pending_notifications(&handler_));
  EXPECT_EQ(1, handleWithoutWaiting());
  EXPECT_EQ(0, handler_.outputs_);
  EXPECT_EQ(1, other.outputs_);
}

TEST_F(WaitReactorTest, ANotificationWakesTheOwner) {
  std::thread notifier([this] { reactor_.notify(&handler_, ACE_Event_Handler::WRITE_MASK); });
  EXPECT_EQ(1, reactor_.handle_events());
  notifier.join();
  EXPECT_EQ(1, handler_.outputs_);
}

TEST_F(WaitReactorTest, ASecondNotificationWakesTheOwnerWhileTheFirstOneIsCollected) {
  class Telling : public ACE_Event_Handler {
   public:
    int handle_output(ACE_HANDLE) override {
      called_.count();
      return 0;
    }
    Latch called_;
  } handler;
  std::thread owner([this] {
    while (impl_.deactivated() == 0) {
      reactor_.handle_events();
    }
  });
  {
    // Many times, since the owner need not wait already when the first one comes.
    const qov::RingCollector collector;
    const auto notify = [&] { reactor_.notify(&handler, ACE_Event_Handler::WRITE_MASK); };
    for (int i = 1; i <= 100; ++i) {
      notify();
      std::thread(notify).join();
      if (!handler.called_.waitFor(i)) {
        ADD_FAILURE() << "asleep at " << i;
        break;
      }
    }
  }
  reactor_.end_reactor_event_loop();
  owner.join();
  handler.reactor(nullptr);
}

TEST_F(WaitReactorTest, NoNotificationIsLostBetweenTwoThreads) {
  constexpr int kTimes = 20000;
  std::thread notifier([this] {
    for (int i = 0; i < kTimes; ++i) {
      reactor_.notify(&handler_, ACE_Event_Handler::WRITE_MASK);
    }
    reactor_.notify(&handler_, ACE_Event_Handler::READ_MASK);
  });
  while (handler_.inputs_ == 0) {
    reactor_.handle_events();
  }
  notifier.join();
  EXPECT_LE(1, handler_.outputs_);
  EXPECT_EQ(0, handleWithoutWaiting());
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

TEST_F(WaitReactorTest, TheLongestDelayIsNotTakenForAPastOne) {
  ASSERT_NE(-1, reactor_.schedule_timer(&handler_, nullptr, ACE_Time_Value::max_time));
  EXPECT_EQ(0, handleWithoutWaiting());
  EXPECT_TRUE(handler_.fired_.empty());
  EXPECT_EQ(1, reactor_.cancel_timer(&handler_));
}

TEST_F(WaitReactorTest, TimersFireWhileNotificationsNeverEnd) {
  class Restless : public CountingHandler {
   public:
    explicit Restless(ACE_Reactor& r) : own_(r) {}
    int handle_output(ACE_HANDLE) override {
      return own_.notify(this, ACE_Event_Handler::WRITE_MASK);
    }
    ACE_Reactor& own_;
  };
  Restless restless(reactor_);
  reactor_.notify(&restless, ACE_Event_Handler::WRITE_MASK);
  ASSERT_NE(-1, reactor_.schedule_timer(&handler_, nullptr, ACE_Time_Value(0, 20000)));
  while (handler_.fired_.empty()) {
    reactor_.handle_events();
  }
  reactor_.purge_pending_notifications(&restless);
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
  {
    qov::WaitReactor impl;
    ACE_Reactor reactor(&impl);
  }
  struct sigaction after = {};
  ASSERT_EQ(0, ::sigaction(SIGUSR1, &before, &after));
  EXPECT_EQ(mine.sa_handler, after.sa_handler);
}
