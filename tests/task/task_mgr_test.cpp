#include <ace/Log_Msg.h>
#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>

#include <optional>
#include <thread>

#include "tests/task/task_fixture.h"

namespace {

using TaskMgrTest = TaskTest;

/// Says whether initEnv() ran, and answers as told.
class HookedModule : public TestModule {
 public:
  explicit HookedModule(bool result) : TestModule(ignore), result_(result) {}
  bool initEnv() override {
    ++hooks_;
    return result_;
  }
  int hooks_ = 0;

 private:
  const bool result_;
};

/// A task of nobody's module that runs in a thread group until it is told to end.
class Stranger : public ACE_Task<ACE_MT_SYNCH> {
 public:
  int svc() override {
    EXPECT_TRUE(end_.waitFor());
    return 0;
  }
  Latch end_;
};

}  // namespace

TEST_F(TaskMgrTest, ANullNameGivesTheNameOfTheClass) {
  TestModule module(ignore, 1, kModule, nullptr);
  EXPECT_EQ("12CQOV_TaskMgr", module.name());
}

TEST_F(TaskMgrTest, KeepsTheNameAndTheId) {
  TestModule module(ignore, 1, 255, "inventory");
  EXPECT_EQ("inventory", module.name());
  EXPECT_EQ(255, module.gid());
}

TEST_F(TaskMgrTest, RegistersADebugKitOfItsNameForItsLife) {
  {
    TestModule module(ignore, 1, kModule, "inventory");
    EXPECT_EQ("inventory", CQOVDebugKitMgr::instance()->find(kModule)->name());
  }
  EXPECT_EQ("QOVPUBLIC", CQOVDebugKitMgr::instance()->find(kModule)->name());
}

TEST_F(TaskMgrTest, LeavesADebugKitAloneThatItDidNotRegister) {
  { TestModule module(ignore, 1, 0); }
  ASSERT_NE(nullptr, CQOVDebugKitMgr::instance()->find(0));
  EXPECT_EQ("QOVPUBLIC", CQOVDebugKitMgr::instance()->find(0)->name());
}

TEST_F(TaskMgrTest, LeavesADebugKitAloneThatHasTakenThePlaceOfItsOwn) {
  CQOVDebugKitMgr& kits = *CQOVDebugKitMgr::instance();
  std::unique_ptr<CQOVDebugKit> own;
  {
    TestModule module(ignore);
    own.reset(kits.remove(kModule));
    ASSERT_EQ(1, kits.add(new CQOVDebugKit("other", kModule)));
  }
  EXPECT_EQ("other", kits.find(kModule)->name());
  delete kits.remove(kModule);
}

TEST_F(TaskMgrTest, InitRunsTheHookAndGivesItsResult) {
  HookedModule good(true);
  EXPECT_TRUE(good.init());
  EXPECT_EQ(1, good.hooks_);
  HookedModule bad(false);
  EXPECT_FALSE(bad.init());
  EXPECT_EQ(1, bad.hooks_);
}

TEST_F(TaskMgrTest, CanBeDestroyedWithoutHavingBeenStarted) {
  TestModule module(ignore);
  EXPECT_EQ(kModule, module.gid());
}

TEST_F(TaskMgrTest, CanBeDestroyedRightAfterInit) {
  for (int i = 0; i < 50; ++i) {
    TestModule module(ignore, 8);
    ASSERT_TRUE(module.init());
  }
}

TEST_F(TaskMgrTest, RunsLeaderSchedulerAndPoolInTheThreadGroupOfTheModule) {
  constexpr unsigned int kLonely = 77;
  TestModule module(ignore, 3, kLonely);
  ASSERT_TRUE(module.init());
  ACE_Task_Base* tasks[16] = {};
  EXPECT_EQ(5, ACE_Thread_Manager::instance()->task_list(kLonely, tasks, 16));
}

TEST_F(TaskMgrTest, AManagerThatNeverStartedDoesNotWaitForAnotherOfTheSameId) {
  TestModule running(ignore);
  ASSERT_TRUE(running.init());
  { TestModule idle(ignore); }
  // The other one is still at work.
  CQOV_Task task(&running);
  EXPECT_EQ(0, task.send(makeMessage(3, 1).release(), nullptr, true));
}

TEST_F(TaskMgrTest, DoesNotWaitForAStrangerInItsThreadGroup) {
  Stranger stranger;
  ASSERT_EQ(
      0, stranger.activate(THR_NEW_LWP | THR_JOINABLE, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, kModule));
  {
    TestModule module(ignore);
    ASSERT_TRUE(module.init());
  }
  stranger.end_.count();
  EXPECT_EQ(0, stranger.wait());
}

TEST_F(TaskMgrTest, TellsAndJoinsATaskOfTheModulesOwnThatJoinedItsGroup) {
  std::optional<FunctionWorker> own;
  {
    TestModule module(ignore);
    ASSERT_TRUE(module.init());
    own.emplace(&module, ignore);
    ASSERT_EQ(0, own->activate(THR_NEW_LWP | THR_JOINABLE, 1, 0, ACE_DEFAULT_THREAD_PRIORITY,
                               module.gid()));
  }
  EXPECT_EQ(0U, own->thr_count());
}

TEST_F(TaskMgrTest, StopEndsTheThreadsBeforeAModuleFreesWhatTheyUse) {
  struct State : Latch {};
  class Stateful : public TestModule {
   public:
    Stateful()
        : TestModule(
              [this](CQOV_Task&, CQOV_MsgPackage&) {
                state_->count();
                return 0;
              },
              2),
          state_(std::make_unique<State>()) {}
    std::unique_ptr<State> state_;
  };
  for (int i = 0; i < 20; ++i) {
    auto module = std::make_unique<Stateful>();
    ASSERT_TRUE(module->init());
    for (int n = 0; n < 50; ++n) {
      ASSERT_LT(0, module->putq(makeBlock(makeMessage(3, 1)), nullptr));
    }
    ASSERT_TRUE(module->state_->waitFor());
    module->stop();
    module->stop();
  }
}

TEST_F(TaskMgrTest, JoinsATaskThatAWorkerStartsDuringTheStop) {
  std::optional<FunctionStaticTask> late;
  Latch inHandler;
  {
    TestModule module(ignore, 0);
    FunctionWorker starter(&module, [&](CQOV_Task&, CQOV_MsgPackage&) {
      inHandler.count();
      EXPECT_TRUE(log_.waitFor("Manager thread(20) exit!"));
      late.emplace(&module, std::list<unsigned long long>{1}, ignore);
      EXPECT_EQ(0, module.insertStaticScheduledTask(&*late));
      return 0;
    });
    ASSERT_TRUE(module.init());
    ASSERT_EQ(0, starter.activate(THR_NEW_LWP | THR_JOINABLE, 1, 0, ACE_DEFAULT_THREAD_PRIORITY,
                                  module.gid()));
    ASSERT_EQ(0, starter.putMsg(3, makeBlock(makeMessage(3, 1)), nullptr));
    ASSERT_TRUE(inHandler.waitFor());
    module.stop();
    EXPECT_EQ(0U, late->thr_count());
  }
}

TEST_F(TaskMgrTest, ATaskOutsideTheGroupIsTheCallersOwn) {
  TestModule module(ignore);
  ASSERT_TRUE(module.init());
  FunctionWorker own(&module, ignore);
  ASSERT_EQ(0, own.activate());
  module.stop();
  EXPECT_EQ(1U, own.thr_count());
  own.notifyExit();
  EXPECT_EQ(0, own.wait());
}

TEST_F(TaskMgrTest, PassesTheTimeoutThroughToTheQueue) {
  // Nothing drains a module that was not started.
  TestModule module(ignore);
  ACE_Time_Value oneSecond(1);
  int taken = 0;
  for (;;) {
    ACE_Message_Block* const block = makeBlock(makeMessage(3, 1));
    if (module.putq(block, &oneSecond) == -1) {
      EXPECT_EQ(EWOULDBLOCK, errno);
      qov::releaseWithPackage(block);
      break;
    }
    ++taken;
  }
  EXPECT_EQ(16384 / 8, taken);
}
