#include <ace/Log_Msg.h>
#include <gtest/gtest.h>
#include <qovpub/qov_task_scheduler.h>

#include <chrono>
#include <optional>

#include "tests/support/failing_threads.h"
#include "tests/support/shifted_clock.h"
#include "tests/task/task_fixture.h"

namespace {

using qov::test::FailingThreads;
using qov::test::InstantWaits;
using qov::test::StandingTimeOfDay;

using PoolStartTest = TaskTest;

/// The leader's and the scheduler's.
constexpr int kThreadsBesideThePool = 2;

void send(CQOV_TaskMgr& module) {
  ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, 1)), nullptr));
}

/// A module whose worker is not made before it is released.
class SlowModule : public TestModule {
 public:
  explicit SlowModule(FunctionWorker::Handler handler) : TestModule(std::move(handler), 1) {}
  CQOV_Task* createTask() override {
    EXPECT_TRUE(release_.waitFor());
    return TestModule::createTask();
  }
  Latch release_;
};

/// A module that starts its workers itself.
class StartingModule : public TestModule {
 public:
  using TestModule::TestModule;
  CQOV_Task* createTask() override {
    CQOV_Task* const worker = TestModule::createTask();
    EXPECT_EQ(0, worker->activate(THR_NEW_LWP | THR_JOINABLE, 1));
    return worker;
  }
};

/// A module of one worker that is busy, and a scheduler that waits for it.
class IdleWaitTest : public TaskTest {
 protected:
  IdleWaitTest()
      : module_(std::make_unique<TestModule>(
            [this](CQOV_Task&, CQOV_MsgPackage&) {
              EXPECT_TRUE(release_.waitFor());
              handled_.count();
              return 0;
            },
            1)) {}

  void SetUp() override {
    ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
    ace.priority_mask(ace.priority_mask(ACE_Log_Msg::PROCESS) | LM_DEBUG, ACE_Log_Msg::PROCESS);
    ASSERT_TRUE(module_->init());
    // Not one of those that are noted for their number.
    CQOV_TaskScheduler::oAtomicSerialNum_ = 1;
    send(*module_);
    send(*module_);
    ASSERT_TRUE(log_.waitFor("wait worker thread is empty begin num(1), time(500)"));
  }

  void TearDown() override { release_.count(); }

  /// Lets the worker come back after so many seconds.
  void workerComesBackAfter(time_t seconds) {
    clock_.advance(seconds);
    release_.count();
    ASSERT_TRUE(handled_.waitFor(2));
    // The wait has been logged by now.
    module_.reset();
  }

  StandingTimeOfDay clock_{500};
  Latch release_;
  Latch handled_;
  std::unique_ptr<TestModule> module_;
};

}  // namespace

TEST_F(PoolStartTest, WorkersThatCannotStartMakeThePoolSmaller) {
  Latch handled;
  const int before = FunctionWorker::alive();
  TestModule module(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        handled.count();
        return 0;
      },
      4);
  {
    const FailingThreads few(kThreadsBesideThePool + 1);
    EXPECT_TRUE(module.init());
    EXPECT_EQ(1, few.failures());
  }
  EXPECT_EQ(before + 1, FunctionWorker::alive());
  EXPECT_EQ(1, log_.count("Failed to start a worker thread in module 20!"));
  EXPECT_EQ(1, log_.count("Module(20) thread inited, threads size is 4!"));
  // None of them goes to a worker that has no thread.
  for (int i = 0; i < 4; ++i) {
    send(module);
  }
  EXPECT_TRUE(handled.waitFor(4));
}

TEST_F(PoolStartTest, AWorkerThatItsFactoryHasStartedIsOneOfThePool) {
  Latch handled;
  const int before = FunctionWorker::alive();
  {
    StartingModule module(
        [&](CQOV_Task&, CQOV_MsgPackage&) {
          handled.count();
          return 0;
        },
        2);
    ASSERT_TRUE(module.init());
    EXPECT_EQ(before + 2, FunctionWorker::alive());
    send(module);
    EXPECT_TRUE(handled.waitFor());
  }
  EXPECT_EQ(before, FunctionWorker::alive());
  EXPECT_EQ(0, log_.count("Failed to start a worker thread"));
}

TEST_F(PoolStartTest, AModuleWithoutAnyWorkerThreadCanBeStopped) {
  TestModule module(ignore, 4);
  const FailingThreads few(kThreadsBesideThePool);
  EXPECT_TRUE(module.init());
  send(module);
  module.stop();
  EXPECT_EQ(1, log_.count("Scheduler thread(20) received stop-message!"));
}

TEST_F(PoolStartTest, InitWaitsForThePoolThirtySecondsAndGoesOn) {
  Latch handled;
  SlowModule module([&](CQOV_Task&, CQOV_MsgPackage&) {
    handled.count();
    return 0;
  });
  {
    const InstantWaits instant;
    EXPECT_TRUE(module.init());
    // Less what had passed before the wait began.
    EXPECT_LT(std::chrono::seconds(15), instant.waited());
    EXPECT_GE(std::chrono::seconds(30), instant.waited());
  }
  EXPECT_EQ(1, log_.count("Module(20) thread pool does not stand after 30 seconds."));
  EXPECT_EQ(0, log_.count("thread inited"));
  // It may stand later.
  module.release_.count();
  send(module);
  EXPECT_TRUE(handled.waitFor());
}

TEST_F(PoolStartTest, InitReturnsWhenThePoolStands) {
  SlowModule module(ignore);
  module.release_.count();
  EXPECT_TRUE(module.init());
  EXPECT_EQ(1, log_.count("Module(20) thread inited, threads size is 1!"));
  EXPECT_EQ(0, log_.count("does not stand"));
}

TEST_F(IdleWaitTest, AWaitOfMoreThanTenSecondsIsNoted) {
  workerComesBackAfter(11);
  EXPECT_EQ(1, log_.count("wait worker thread is empty end wait num(1), time(511)."));
  EXPECT_EQ(1, log_.count("wait worker thread is empty end wait num(1), time(11)."));
}

TEST_F(IdleWaitTest, AWaitOfTenSecondsIsNot) {
  workerComesBackAfter(10);
  EXPECT_EQ(1, log_.count("wait worker thread is empty end wait num(1), time(510)."));
  EXPECT_EQ(0, log_.count("wait worker thread is empty end wait num(1), time(10)."));
}
