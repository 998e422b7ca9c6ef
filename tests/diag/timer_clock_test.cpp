#include "diag/timer_clock.h"

#include <ace/High_Res_Timer.h>
#include <ace/Reactor.h>
#include <ace/Timer_Queue.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

class Alarm : public ACE_Event_Handler {
 public:
  int handle_timeout(const ACE_Time_Value&, const void*) override {
    ++rung_;
    return 0;
  }
  int rung_ = 0;
};

class TimerClock : public testing::Test {
 protected:
  ~TimerClock() override { reactor_.cancel_timer(&alarm_); }

  void waitForAlarm() {
    ACE_Time_Value limit(30);
    while (alarm_.rung_ == 0 && limit > ACE_Time_Value::zero) {
      reactor_.handle_events(limit);
    }
  }

  ACE_Time_Value ahead() {
    return ACE_High_Res_Timer::gettimeofday_hr() - reactor_.timer_queue()->gettimeofday();
  }

  ACE_Reactor reactor_;
  Alarm alarm_;
};

TEST_F(TimerClock, IsTheHighResolutionOne) {
  qov::useHighResolutionClock(reactor_);
  EXPECT_LT(ahead(), ACE_Time_Value(30));
  EXPECT_GT(ahead(), ACE_Time_Value(-30));
}

TEST_F(TimerClock, LeavesWaitingTimersTheirTime) {
  reactor_.schedule_timer(&alarm_, nullptr, ACE_Time_Value(0, 50000));
  qov::useHighResolutionClock(reactor_);
  const ACE_Time_Value left =
      reactor_.timer_queue()->earliest_time() - reactor_.timer_queue()->gettimeofday();
  EXPECT_LE(left, ACE_Time_Value(0, 50000));
  waitForAlarm();
  EXPECT_EQ(alarm_.rung_, 1);
}

TEST_F(TimerClock, StaysWhenItIsSetAgain) {
  qov::useHighResolutionClock(reactor_);
  reactor_.schedule_timer(&alarm_, nullptr, ACE_Time_Value(3600));
  const ACE_Time_Value due = reactor_.timer_queue()->earliest_time();
  for (int round = 0; round < 100; ++round) {
    qov::useHighResolutionClock(reactor_);
  }
  EXPECT_EQ(reactor_.timer_queue()->earliest_time(), due);
}

}  // namespace
