#include "task/pending_requests.h"

#include <ace/Reactor.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "task/wait_reactor.h"
#include "tests/task/task_fixture.h"

namespace {

MsgKey keyOf(std::uint32_t sn, std::uint8_t receiver = kPid) {
  return {1, sn, kPid, kModule, receiver, kModule};
}

/// Counts how often a wait is ended.
class WaitingTask : public CQOV_Task {
 public:
  WaitingTask() : CQOV_Task(nullptr) {}
  int wakeup() override { return ++wakeUps_; }

  int wakeUps_ = 0;
};

/// Hands the acts of timers on, as a leader does.
class TimeOuts : public ACE_Event_Handler {
 public:
  int handle_timeout(const ACE_Time_Value&, const void* act) override {
    pending_->timeOut(act);
    return 0;
  }

  qov::PendingRequests* pending_ = nullptr;
};

constexpr std::uint32_t kLast = 99;
const ACE_Time_Value kSoon(0, 1000);
const ACE_Time_Value kLater(0, 20000);

class PendingRequestsTest : public ::testing::Test {
 protected:
  PendingRequestsTest() { timeOuts_.pending_ = &pending_; }
  ~PendingRequestsTest() override { timeOuts_.reactor(nullptr); }

  bool add(const MsgKey& key, ACE_Time_Value timeout = kNoLimit) {
    return pending_.add(key, {&task_, timeout, -1});
  }

  /// Handles events until a timer that ends later than kSoon has fired.
  void letSoonPass() {
    ASSERT_TRUE(add(keyOf(kLast), kLater));
    for (const int before = task_.wakeUps_; task_.wakeUps_ == before;) {
      reactor_.handle_events();
    }
    EXPECT_EQ(nullptr, pending_.take(keyOf(kLast)).task_) << "a timer was left";
  }

  WaitingTask task_;
  TimeOuts timeOuts_;
  qov::WaitReactor impl_{timeOuts_};
  ACE_Reactor reactor_{&impl_};
  qov::ModuleCounters counters_{kModule};
  qov::PendingRequests pending_{reactor_, timeOuts_, counters_};
};

}  // namespace

TEST_F(PendingRequestsTest, GivesTheSenderOnceAndWakesNobody) {
  ASSERT_TRUE(add(keyOf(1)));
  EXPECT_EQ(&task_, pending_.take(keyOf(1)).task_);
  EXPECT_EQ(nullptr, pending_.take(keyOf(1)).task_);
  EXPECT_EQ(0, task_.wakeUps_);
}

TEST_F(PendingRequestsTest, RefusesAKeyThatIsPending) {
  ASSERT_TRUE(add(keyOf(1)));
  EXPECT_FALSE(add(keyOf(1)));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_TRUE(add(keyOf(2)));
}

TEST_F(PendingRequestsTest, EveryPartOfTheKeyCounts) {
  const MsgKey key{1, 2, 3, 4, 5, 6};
  ASSERT_TRUE(add(key));
  for (const MsgKey& other :
       {MsgKey{9, 2, 3, 4, 5, 6}, MsgKey{1, 9, 3, 4, 5, 6}, MsgKey{1, 2, 9, 4, 5, 6},
        MsgKey{1, 2, 3, 9, 5, 6}, MsgKey{1, 2, 3, 4, 9, 6}, MsgKey{1, 2, 3, 4, 5, 9}}) {
    EXPECT_EQ(nullptr, pending_.take(other).task_);
  }
  EXPECT_EQ(&task_, pending_.take(key).task_);
}

TEST_F(PendingRequestsTest, ATimeOutEndsItsWaitHoweverManyHaveComeSince) {
  ASSERT_TRUE(add(keyOf(0), kSoon));
  // The table grows meanwhile.
  constexpr std::uint32_t kMany = 20000;
  for (std::uint32_t sn = 1; sn < kMany; ++sn) {
    ASSERT_TRUE(add(keyOf(sn)));
  }
  while (task_.wakeUps_ == 0) {
    reactor_.handle_events();
  }
  EXPECT_EQ(1, task_.wakeUps_);
  EXPECT_EQ(nullptr, pending_.take(keyOf(0)).task_);
  EXPECT_EQ(&task_, pending_.take(keyOf(1)).task_);
}

TEST_F(PendingRequestsTest, AnEndedWaitHasNoTimerLeft) {
  ASSERT_TRUE(add(keyOf(1), kSoon));
  EXPECT_EQ(&task_, pending_.take(keyOf(1)).task_);
  ASSERT_TRUE(add(keyOf(2), kSoon));
  pending_.drop(keyOf(2), EHOSTUNREACH);
  ASSERT_TRUE(add(keyOf(3, kOtherPid), kSoon));
  pending_.releaseOtherProcesses(kPid);
  EXPECT_EQ(1, task_.wakeUps_);
  letSoonPass();
}

TEST_F(PendingRequestsTest, ATimeOutOfZeroNeverEnds) {
  ASSERT_TRUE(add(keyOf(1)));
  letSoonPass();
  EXPECT_EQ(&task_, pending_.take(keyOf(1)).task_);
}

TEST_F(PendingRequestsTest, ReleasesTheSendersThatWaitForOtherProcesses) {
  ASSERT_TRUE(add(keyOf(1)));
  ASSERT_TRUE(add(keyOf(2, kOtherPid), kLong));
  ASSERT_TRUE(add(keyOf(3, kOtherPid)));
  pending_.releaseOtherProcesses(kPid);
  EXPECT_EQ(2, task_.wakeUps_);
  EXPECT_EQ(&task_, pending_.take(keyOf(1)).task_);
  EXPECT_EQ(nullptr, pending_.take(keyOf(2, kOtherPid)).task_);
}

TEST_F(PendingRequestsTest, ReleasesAll) {
  ASSERT_TRUE(add(keyOf(1), kLong));
  ASSERT_TRUE(add(keyOf(2, kOtherPid)));
  pending_.releaseAll();
  EXPECT_EQ(2, task_.wakeUps_);
  EXPECT_EQ(nullptr, pending_.take(keyOf(1)).task_);
}
