#include <ace/Log_Msg.h>
#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/sanitizers.h"
#include "tests/task/task_fixture.h"

namespace {

using TaskMgrTest = TaskTest;

constexpr int kJoinable = THR_NEW_LWP | THR_JOINABLE;

/// What a plain thread waits for, and whether it is through.
struct PlainThread {
  Latch end_;
  std::atomic<bool> ended_{false};
};

ACE_THR_FUNC_RETURN runPlainThread(void* argument) {
  auto& self = *static_cast<PlainThread*>(argument);
  EXPECT_TRUE(self.end_.waitFor());
  self.ended_ = true;
  return nullptr;
}

ACE_THR_FUNC_RETURN endAtOnce(void*) {
  return nullptr;
}

/// Starts a plain thread in the thread group `group`; returns the number of its group.
int spawnInto(int group, PlainThread& plain, long flags = kJoinable) {
  return ACE_Thread_Manager::instance()->spawn(&runPlainThread, &plain, flags, nullptr, nullptr,
                                               ACE_DEFAULT_THREAD_PRIORITY, group);
}

/// Calls `release`, on a thread of its own, once module 20 tells that it joins so many threads.
class Releaser {
 public:
  Releaser(StderrCapture& log, int threads, std::function<void()> release)
      : thread_([&log, threads, toDo = std::move(release)] {
          EXPECT_TRUE(log.waitFor("Module(20) finds " + std::to_string(threads) +
                                  " threads in its group and joins those that can be."));
          toDo();
        }) {}
  ~Releaser() { thread_.join(); }
  Releaser(const Releaser&) = delete;
  Releaser& operator=(const Releaser&) = delete;

 private:
  std::thread thread_;
};

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

/// A worker that a plain thread starts and hands over to the pool.
struct HandedOver {
  /// Ends late.
  class Worker : public CQOV_CommonTask {
   public:
    Worker(CQOV_TaskMgr* mgr, std::atomic<bool>& ended) : CQOV_CommonTask(mgr), ended_(ended) {}
    int svc() override {
      CQOV_CommonTask::svc();
      // Long enough for somebody who does not wait.
      EXPECT_FALSE(Latch().waitFor(1, std::chrono::milliseconds(100)));
      ended_ = true;
      return 0;
    }
    int handleMessage(CQOV_MsgPackage&) override { return 0; }

   private:
    std::atomic<bool>& ended_;
  };

  static ACE_THR_FUNC_RETURN run(void* argument) {
    auto& self = *static_cast<HandedOver*>(argument);
    EXPECT_TRUE(self.begin_.waitFor());
    auto* const worker = new Worker(self.module_, self.ended_);
    EXPECT_EQ(0, worker->activate());
    EXPECT_EQ(0, worker->idle());
    return nullptr;
  }

  CQOV_TaskMgr* module_ = nullptr;
  Latch begin_;
  std::atomic<bool> ended_{false};
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

TEST_F(TaskMgrTest, JoinsATaskOfAnotherKindThatRunsInItsGroup) {
  Stranger stranger;
  std::optional<TestModule> module(std::in_place, ignore);
  ASSERT_TRUE(module->init());
  ASSERT_EQ(0, stranger.activate(kJoinable, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, kModule));
  const Releaser releaser(log_, 1, [&] { stranger.end_.count(); });
  module.reset();
  EXPECT_EQ(0U, stranger.thr_count());
}

TEST_F(TaskMgrTest, JoinsPlainThreadsThatWereSpawnedIntoItsGroup) {
  PlainThread plain[3];
  std::optional<TestModule> module(std::in_place, ignore);
  ASSERT_TRUE(module->init());
  for (PlainThread& one : plain) {
    ASSERT_EQ(static_cast<int>(kModule), spawnInto(kModule, one));
  }
  const Releaser releaser(log_, 3, [&] {
    for (PlainThread& one : plain) {
      one.end_.count();
    }
  });
  module.reset();
  for (PlainThread& one : plain) {
    EXPECT_TRUE(one.ended_);
  }
}

TEST_F(TaskMgrTest, LeavesThePlainThreadsOfItsGroupToAnotherManagerOfItsIdThatRuns) {
  PlainThread plain;
  std::optional<TestModule> module(std::in_place, ignore);
  ASSERT_TRUE(module->init());
  ASSERT_EQ(static_cast<int>(kModule), spawnInto(kModule, plain));
  {
    TestModule neverStarted(ignore);
    TestModule twin(ignore);
    ASSERT_TRUE(twin.init());
  }
  EXPECT_EQ(0, log_.count("threads in its group"));
  const Releaser releaser(log_, 1, [&] { plain.end_.count(); });
  module.reset();
  EXPECT_TRUE(plain.ended_);
}

TEST_F(TaskMgrTest, JoinsAPlainThreadThatAnotherOneStartsAtItsEnd) {
  struct Starter {
    static ACE_THR_FUNC_RETURN run(void* argument) {
      auto& self = *static_cast<Starter*>(argument);
      EXPECT_TRUE(self.begin_.waitFor());
      EXPECT_EQ(static_cast<int>(kModule), spawnInto(kModule, self.next_));
      return nullptr;
    }
    Latch begin_;
    PlainThread next_;
  };
  Starter starter;
  std::optional<TestModule> module(std::in_place, ignore);
  ASSERT_TRUE(module->init());
  ASSERT_EQ(static_cast<int>(kModule),
            ACE_Thread_Manager::instance()->spawn(&Starter::run, &starter, kJoinable, nullptr,
                                                  nullptr, ACE_DEFAULT_THREAD_PRIORITY, kModule));
  const Releaser releaser(log_, 1, [&] {
    starter.begin_.count();
    starter.next_.end_.count();
  });
  module.reset();
  EXPECT_TRUE(starter.next_.ended_);
}

TEST_F(TaskMgrTest, JoinsThePlainThreadsOfAManagerThatWasNeverStarted) {
  PlainThread plain;
  std::optional<TestModule> module(std::in_place, ignore);
  ASSERT_EQ(static_cast<int>(kModule), spawnInto(kModule, plain));
  const Releaser releaser(log_, 1, [&] { plain.end_.count(); });
  module.reset();
  EXPECT_TRUE(plain.ended_);
}

TEST_F(TaskMgrTest, JoinsATaskThatAPlainThreadHandsOverAtItsEnd) {
  HandedOver handedOver;
  std::optional<TestModule> module(std::in_place, ignore);
  handedOver.module_ = &*module;
  ASSERT_TRUE(module->init());
  ASSERT_EQ(static_cast<int>(kModule),
            ACE_Thread_Manager::instance()->spawn(&HandedOver::run, &handedOver, kJoinable, nullptr,
                                                  nullptr, ACE_DEFAULT_THREAD_PRIORITY, kModule));
  const Releaser releaser(log_, 1, [&] { handedOver.begin_.count(); });
  module.reset();
  EXPECT_TRUE(handedOver.ended_);
}

TEST_F(TaskMgrTest, LeavesTheThreadsOfItsGroupToTheDestructorOfTheModulesOwnClass) {
  class Owner : public TestModule {
   public:
    explicit Owner(PlainThread& plain) : TestModule(ignore), plain_(plain) {}
    ~Owner() override {
      plain_.end_.count();
      member_.end_.count();
      EXPECT_EQ(0, member_.wait());
    }
    bool initEnv() override {
      return spawnInto(kModule, plain_) == kModule &&
             member_.activate(kJoinable, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, gid()) == 0;
    }

   private:
    PlainThread& plain_;
    Stranger member_;
  };
  PlainThread plain;
  std::optional<Owner> module(std::in_place, plain);
  ASSERT_TRUE(module->init());
  module->stop();
  EXPECT_FALSE(plain.ended_);
  module.reset();
  EXPECT_TRUE(plain.ended_);
}

TEST_F(TaskMgrTest, JoinsATaskThatIsHandedOverAfterTheStop) {
  HandedOver handedOver;
  {
    TestModule module(ignore);
    handedOver.module_ = &module;
    ASSERT_TRUE(module.init());
    module.stop();
    handedOver.begin_.count();
    HandedOver::run(&handedOver);
  }
  EXPECT_TRUE(handedOver.ended_);
}

TEST_F(TaskMgrTest, DoesNotWaitForPlainThreadsOfOtherGroups) {
  PlainThread plain;
  ASSERT_EQ(kModule + 1, spawnInto(kModule + 1, plain));
  {
    TestModule module(ignore);
    ASSERT_TRUE(module.init());
  }
  EXPECT_FALSE(plain.ended_);
  EXPECT_EQ(0, log_.count("threads in its group"));
  plain.end_.count();
  EXPECT_EQ(0, ACE_Thread_Manager::instance()->wait_grp(kModule + 1));
}

TEST_F(TaskMgrTest, DoesNotWaitForADetachedThreadOfItsGroup) {
  if (QOV_TEST_TSAN) {
    GTEST_SKIP() << "nothing orders a detached thread's last steps in ACE before ACE's own end";
  }
  // Nobody can. It is given up, whatever the log says.
  auto& plain = *new PlainThread;
  ASSERT_EQ(static_cast<int>(kModule), spawnInto(kModule, plain, THR_NEW_LWP | THR_DETACHED));
  {
    TestModule module(ignore);
    ASSERT_TRUE(module.init());
  }
  EXPECT_FALSE(plain.ended_);
  plain.end_.count();
  while (!plain.ended_) {
    std::this_thread::yield();
  }
  delete &plain;
}

TEST_F(TaskMgrTest, LeavesAThreadAloneThatHasTheIdOfADetachedOneOfItsGroup) {
  PlainThread joined;
  auto& detached = *new PlainThread;
  std::optional<TestModule> module(std::in_place, ignore);
  ASSERT_TRUE(module->init());
  ASSERT_EQ(static_cast<int>(kModule), spawnInto(kModule, detached, THR_NEW_LWP | THR_DETACHED));
  ASSERT_EQ(static_cast<int>(kModule), spawnInto(kModule, joined));
  std::vector<std::unique_ptr<PlainThread>> others;
  {
    const Releaser releaser(log_, 2, [&] {
      detached.end_.count();
      while (!detached.ended_) {
        std::this_thread::yield();
      }
      // One of many gets the id of the detached thread, once that is gone.
      for (int i = 0; i < 20; ++i) {
        others.push_back(std::make_unique<PlainThread>());
        EXPECT_EQ(kModule + 1, spawnInto(kModule + 1, *others.back()));
        std::this_thread::yield();
      }
      joined.end_.count();
    });
    module.reset();
    EXPECT_TRUE(joined.ended_);
  }
  for (const auto& other : others) {
    EXPECT_FALSE(other->ended_);
    other->end_.count();
  }
  EXPECT_EQ(0, ACE_Thread_Manager::instance()->wait_grp(kModule + 1));
  delete &detached;
}

TEST_F(TaskMgrTest, ThreadsThatAskForNoGroupGetNoneOfAModule) {
  ACE_Thread_Manager& threads = *ACE_Thread_Manager::instance();
  const int group = threads.spawn(&endAtOnce);
  EXPECT_LT(255, group);
  EXPECT_EQ(0, threads.wait_grp(group));
  Stranger stranger;
  ASSERT_EQ(0, stranger.activate());
  EXPECT_LT(255, stranger.grp_id());
  stranger.end_.count();
  EXPECT_EQ(0, stranger.wait());
}

TEST_F(TaskMgrTest, TellsAndJoinsATaskOfTheModulesOwnThatJoinedItsGroup) {
  std::optional<WorkerBeside> own;
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
    WorkerBeside starter(&module, [&](CQOV_Task&, CQOV_MsgPackage&) {
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
  WorkerBeside own(&module, ignore);
  ASSERT_EQ(0, own.activate());
  module.stop();
  EXPECT_EQ(1U, own.thr_count());
  own.notifyExit();
  EXPECT_EQ(0, own.wait());
}

TEST_F(TaskMgrTest, OnlyTasksOfTheManagerBecomeIdleInItsPool) {
  TestModule module(ignore);
  TestModule other(ignore, 1, kModule + 1);
  CQOV_Task nobodys(nullptr);
  CQOV_Task others(&other);
  for (CQOV_Task* const task : {&nobodys, &others}) {
    errno = 0;
    EXPECT_EQ(-1, module.idle(task));
    EXPECT_EQ(EINVAL, errno);
  }
  EXPECT_EQ(-1, module.idle(nullptr));
  EXPECT_EQ(0, module.idle(new FunctionWorker(&module, ignore)));
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
