#include <ace/Thread.h>
#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <optional>

#include "tests/support/failing_threads.h"
#include "tests/task/task_fixture.h"

namespace {

using qov::test::FailingThreads;

constexpr std::uint64_t kStatic = 100;

/// What the system and ACE say about the calling thread.
struct ThreadFacts {
  int group = -1;
  std::size_t stackBytes = 0;
  int detachState = -1;

  static ThreadFacts ofThisThread() {
    ThreadFacts facts;
    ACE_Thread_Manager::instance()->get_grp(ACE_Thread::self(), facts.group);
    pthread_attr_t attributes;
    EXPECT_EQ(0, ::pthread_getattr_np(::pthread_self(), &attributes));
    EXPECT_EQ(0, ::pthread_attr_getstacksize(&attributes, &facts.stackBytes));
    EXPECT_EQ(0, ::pthread_attr_getdetachstate(&attributes, &facts.detachState));
    EXPECT_EQ(0, ::pthread_attr_destroy(&attributes));
    return facts;
  }

  void expectThoseOf(CQOV_TaskMgr& module) const {
    EXPECT_EQ(module.gid(), group);
    EXPECT_EQ(1048576U, stackBytes);
    EXPECT_EQ(PTHREAD_CREATE_JOINABLE, detachState);
  }
};

/// Notes the facts of its scheduler's thread, which makes the workers.
class NotingModule : public TestModule {
 public:
  explicit NotingModule(FunctionWorker::Handler handler) : TestModule(std::move(handler)) {}
  CQOV_Task* createTask() override {
    scheduler_ = ThreadFacts::ofThisThread();
    return TestModule::createTask();
  }
  ThreadFacts scheduler_;
};

/// Notes the facts of the leader's thread, which delivers its messages, and of its own.
class NotingTask : public FunctionStaticTask {
 public:
  explicit NotingTask(CQOV_TaskMgr* mgr)
      : FunctionStaticTask(mgr, {kStatic}, [this](CQOV_Task&, CQOV_MsgPackage&) {
          own_ = ThreadFacts::ofThisThread();
          handled_.count();
          return 0;
        }) {}
  int putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) override {
    leader_ = ThreadFacts::ofThisThread();
    return FunctionStaticTask::putMsg(type, mb, timeout);
  }
  ThreadFacts leader_;
  ThreadFacts own_;
  Latch handled_;
};

class ThreadStartTest : public TaskTest {
 protected:
  static void send(CQOV_TaskMgr& module, std::uint64_t opc) {
    ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, opc)), nullptr));
  }
};

}  // namespace

TEST_F(ThreadStartTest, EveryThreadOfAModuleIsJoinableInItsGroupAndHasAStackOfOneMebibyte) {
  ThreadFacts worker;
  Latch handled;
  std::optional<NotingTask> task;
  NotingModule module([&](CQOV_Task&, CQOV_MsgPackage&) {
    worker = ThreadFacts::ofThisThread();
    handled.count();
    return 0;
  });
  ASSERT_TRUE(module.init());
  task.emplace(&module);
  ASSERT_EQ(0, module.insertStaticScheduledTask(&*task));
  send(module, kStatic);
  send(module, kStatic + 1);
  ASSERT_TRUE(handled.waitFor());
  ASSERT_TRUE(task->handled_.waitFor());
  module.stop();
  module.scheduler_.expectThoseOf(module);
  worker.expectThoseOf(module);
  task->leader_.expectThoseOf(module);
  task->own_.expectThoseOf(module);
}

TEST_F(ThreadStartTest, AModuleWhoseLeaderCannotStartFails) {
  TestModule module(ignore);
  const int before = FunctionWorker::alive();
  const FailingThreads none(0);
  EXPECT_FALSE(module.init());
  EXPECT_EQ(1, none.failures());
  EXPECT_EQ(before, FunctionWorker::alive());
}

TEST_F(ThreadStartTest, AModuleWhoseSchedulerCannotStartFailsAndTellsItsLeaderToEnd) {
  TestModule module(ignore);
  const int before = FunctionWorker::alive();
  const FailingThreads one(1);
  EXPECT_FALSE(module.init());
  EXPECT_EQ(1, one.failures());
  // Without anybody deleting the module.
  ASSERT_TRUE(log_.waitFor("Manager thread(20) received stop-message!"));
  EXPECT_TRUE(log_.waitFor("Manager thread(20) exit!"));
  EXPECT_EQ(before, FunctionWorker::alive());
}

TEST_F(ThreadStartTest, AModuleThatFailedToStartLetsNobodyWait) {
  for (const int threads : {0, 1}) {
    std::optional<CQOV_Task> sender;
    TestModule module(ignore);
    {
      const FailingThreads few(threads);
      ASSERT_FALSE(module.init());
    }
    module.stop();
    sender.emplace(&module);
    EXPECT_EQ(-1, request(*sender, makeMessage(1, 1), kNoLimit));
    EXPECT_EQ(-1, sender->send(makeMessage(3, 1).release(), nullptr, true));
  }
}

TEST_F(ThreadStartTest, AStaticTaskThatCannotStartIsNotRegisteredAndCanBeTriedAgain) {
  Latch inPool;
  Latch inStatic;
  std::optional<FunctionStaticTask> task;
  TestModule module([&](CQOV_Task&, CQOV_MsgPackage&) {
    inPool.count();
    return 0;
  });
  ASSERT_TRUE(module.init());
  task.emplace(&module, std::list<unsigned long long>{kStatic}, [&](CQOV_Task&, CQOV_MsgPackage&) {
    inStatic.count();
    return 0;
  });
  {
    const FailingThreads none(0);
    EXPECT_EQ(-1, module.insertStaticScheduledTask(&*task));
    EXPECT_EQ(1, none.failures());
  }
  send(module, kStatic);
  EXPECT_TRUE(inPool.waitFor());
  EXPECT_EQ(0, module.insertStaticScheduledTask(&*task));
  send(module, kStatic);
  EXPECT_TRUE(inStatic.waitFor());
  EXPECT_EQ(1, inPool.counted());
  module.stop();
}
