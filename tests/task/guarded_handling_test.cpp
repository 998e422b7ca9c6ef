#include <ace/Log_Msg.h>
#include <gtest/gtest.h>
#include <qovplatform/platform_guard.h>
#include <qovpub/qov_task_scheduler.h>

#include <array>
#include <map>
#include <mutex>
#include <thread>

#include "tests/support/shifted_clock.h"
#include "tests/task/task_fixture.h"

// This program has guards of its own, as a platform library in the place of ours would.

namespace {

using Guard = std::array<unsigned, 3>;

std::mutex mutex;
std::map<Guard, int> open;
std::map<Guard, int> begun;

void count(const Guard& guard, int change) {
  const std::lock_guard<std::mutex> lock(mutex);
  open[guard] += change;
  begun[guard] += change > 0 ? 1 : 0;
}

int countBegun(const Guard& guard) {
  const std::lock_guard<std::mutex> lock(mutex);
  return begun[guard];
}

int countOpen(const Guard& guard) {
  const std::lock_guard<std::mutex> lock(mutex);
  return open[guard];
}

constexpr Guard kLeaders = {0, 1, 3600};
constexpr Guard kSchedulers = {5, 1, 3600};

/// Looks at the leader's guard while the leader delivers a message to it.
class Looking : public FunctionStaticTask {
 public:
  explicit Looking(CQOV_TaskMgr* mgr) : FunctionStaticTask(mgr, {1}, ignore) {}
  int putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) override {
    seen_ = countOpen(kLeaders);
    const int result = FunctionStaticTask::putMsg(type, mb, timeout);
    delivered_.count();
    return result;
  }
  int seen_ = 0;
  Latch delivered_;
};

using GuardedHandlingTest = TaskTest;

}  // namespace

FowGuard::FowGuard(unsigned kind, unsigned level, unsigned seconds)
    : kind_(kind), level_(level), seconds_(seconds), slot_(nullptr) {
  count({kind_, level_, seconds_}, 1);
}

FowGuard::~FowGuard() {
  // Of no use to these guards.
  static_cast<void>(deadline_);
  static_cast<void>(slot_);
  count({kind_, level_, seconds_}, -1);
}

TEST_F(GuardedHandlingTest, TheLeaderIsWatchedWhileItHandlesAMessage) {
  TestModule module(ignore);
  Looking task(&module);
  ASSERT_TRUE(module.init());
  ASSERT_EQ(0, module.insertStaticScheduledTask(&task));
  EXPECT_EQ(0, countOpen(kLeaders));
  ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, 1)), nullptr));
  ASSERT_TRUE(task.delivered_.waitFor());
  EXPECT_EQ(1, task.seen_);
  module.stop();
  EXPECT_EQ(0, countOpen(kLeaders));
}

TEST_F(GuardedHandlingTest, TheSchedulerIsWatchedWhileItWaitsForAWorker) {
  Latch release;
  Latch handled;
  TestModule module(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        handled.count();
        EXPECT_TRUE(release.waitFor());
        return 0;
      },
      1);
  ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
  ace.priority_mask(ace.priority_mask(ACE_Log_Msg::PROCESS) | LM_DEBUG, ACE_Log_Msg::PROCESS);
  ASSERT_TRUE(module.init());
  ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, 1)), nullptr));
  ASSERT_TRUE(handled.waitFor());
  ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, 1)), nullptr));
  ASSERT_TRUE(log_.waitFor("wait worker thread is empty begin num("));
  EXPECT_EQ(1, countOpen(kSchedulers));
  release.count();
  ASSERT_TRUE(handled.waitFor(2));
  module.stop();
  EXPECT_EQ(0, countOpen(kSchedulers));
}

TEST_F(GuardedHandlingTest, OneWatchIsNotSetOnTheWaitsOfAPoolThatIsBusyForHours) {
  TestModule module(ignore, 0);
  CQOV_TaskScheduler scheduler(&module, 0);
  auto* const worker = new FunctionWorker(&module, ignore);
  const int before = countBegun(kSchedulers);
  ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
  ace.priority_mask(ace.priority_mask(ACE_Log_Msg::PROCESS) | LM_DEBUG, ACE_Log_Msg::PROCESS);
  std::thread waiter([&] {
    // Its looks at the watch come at once.
    const qov::test::InstantWaits instant;
    EXPECT_EQ(0, scheduler.handle_mb_data(makeBlock(makeMessage(3, 1))));
  });
  ASSERT_EQ(0, scheduler.putMsg(3, makeBlock(makeMessage(3, 2)), nullptr));
  const auto returnWorker = [&] {
    ASSERT_EQ(0, scheduler.return_to_work(worker));
    ACE_Message_Block* block = nullptr;
    ASSERT_EQ(0, worker->msg_queue()->dequeue_head(block));
    qov::releaseWithPackage(block);
  };
  ASSERT_TRUE(log_.waitFor("wait worker thread is empty begin num("));
  // The worker ends the first wait, and another one begins.
  returnWorker();
  while (countBegun(kSchedulers) == before + 1) {
    std::this_thread::yield();
  }
  EXPECT_EQ(1, countOpen(kSchedulers));
  returnWorker();
  waiter.join();
  EXPECT_EQ(before + 2, countBegun(kSchedulers));
  EXPECT_EQ(0, countOpen(kSchedulers));
}
