#include <ace/Log_Msg.h>
#include <ace/Reactor.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "tests/support/sleeping_thread.h"
#include "tests/task/task_fixture.h"

namespace {

constexpr std::uint64_t kAnswered = 1;
constexpr std::uint64_t kSilent = 2;

class TaskStopTest : public TaskTest {
 protected:
  TaskStopTest()
      : module_(std::make_unique<TestModule>([this](CQOV_Task& task, CQOV_MsgPackage& pkg) {
          handled_.count();
          return pkg.head().opc_ == kAnswered && pkg.head().type_ == 1 ? answer(task, pkg) : 0;
        })) {}

  ~TaskStopTest() override { ACE_Reactor::instance()->reset_reactor_event_loop(); }

  void stopLeader() {
    auto* const stop = new ACE_Message_Block(0, ACE_Message_Block::MB_STOP);
    if (module_->putq(stop, nullptr) == -1) {
      // Stopped already.
      stop->release();
    }
  }

  void logDebug(bool on) {
    ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
    const u_long mask = ace.priority_mask(ACE_Log_Msg::PROCESS);
    ace.priority_mask(on ? mask | LM_DEBUG : mask & ~u_long{LM_DEBUG}, ACE_Log_Msg::PROCESS);
  }

  /// What SIGINT does.
  void stopProcessReactor() { ACE_Reactor::instance()->end_reactor_event_loop(); }

  Latch handled_;
  std::unique_ptr<TestModule> module_;
};

/// Its threads wait for blocks until its queue is closed, which notifyExit() does. That waits for
/// them, too.
class ClosedTask : public CQOV_Task {
 public:
  using CQOV_Task::CQOV_Task;

  /// Each thread begins to wait when the one before it waits.
  void startOneByOne(int threads) {
    constexpr long kFlags = THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED;
    for (int i = 0; i < threads; ++i) {
      id_ = 0;
      ASSERT_EQ(0, activate(kFlags, 1, 1, ACE_DEFAULT_THREAD_PRIORITY, kModule));
      qov::test::waitForThread([this] { return id_ != 0 && qov::test::sleeps(id_); }, "waits");
    }
    threads_ = threads;
  }

  void notifyExit() override {
    msg_queue()->deactivate();
    EXPECT_TRUE(ended_.waitFor(threads_));
  }

  int svc() override {
    ACE_Message_Block* none = nullptr;
    id_ = ::gettid();
    EXPECT_EQ(-1, msg_queue()->dequeue_head(none));
    ended_.count();
    return 0;
  }

 private:
  std::atomic<pid_t> id_{0};
  int threads_ = 0;
  Latch ended_;
};

}  // namespace

TEST_F(TaskStopTest, AStopEndsEveryThreadOfTheModule) {
  ASSERT_TRUE(module_->init());
  stopLeader();
  EXPECT_TRUE(log_.waitFor("Manager thread(20) received stop-message!"));
  EXPECT_TRUE(log_.waitFor("Manager thread(20) exit!"));
  EXPECT_TRUE(log_.waitFor("Scheduler thread(20) received stop-message!"));
  EXPECT_TRUE(log_.waitFor("Task(20) will exit!", 2));
}

TEST_F(TaskStopTest, AStopWakesEveryPendingSender) {
  ASSERT_TRUE(module_->init());
  std::vector<std::thread> senders;
  for (int i = 0; i < 4; ++i) {
    senders.emplace_back([this] {
      CQOV_Task task(module_.get());
      EXPECT_EQ(-1, request(task, makeMessage(1, kSilent), kNoLimit));
    });
  }
  ASSERT_TRUE(handled_.waitFor(4));
  stopLeader();
  for (std::thread& sender : senders) {
    sender.join();
  }
}

TEST_F(TaskStopTest, NoSenderHangsWhateverTheMomentOfTheStop) {
  for (int round = 0; round < 30; ++round) {
    Latch answered;
    TestModule module([](CQOV_Task& task, CQOV_MsgPackage& pkg) { return answer(task, pkg); }, 2,
                      kModule + 1);
    ASSERT_TRUE(module.init());
    std::vector<std::thread> senders;
    for (int i = 0; i < 3; ++i) {
      senders.emplace_back([&] {
        CQOV_Task task(&module);
        while (request(task, makeMessage(1, kAnswered, kModule + 1, kModule + 1), kNoLimit) == 0) {
          answered.count();
        }
      });
    }
    ASSERT_TRUE(answered.waitFor(20 + round));
    module.putq(new ACE_Message_Block(0, ACE_Message_Block::MB_STOP), nullptr);
    for (std::thread& sender : senders) {
      sender.join();
    }
  }
}

TEST_F(TaskStopTest, ARequestThatWasNeverHandledIsWokenAndFreed) {
  // The leader does not run, so the request stays in its queue until the module goes.
  std::thread sender([this] {
    CQOV_Task task(module_.get());
    EXPECT_EQ(-1, request(task, makeMessage(1, kAnswered), kNoLimit));
  });
  // Each look puts a message of its own into the queue: the request is there once the queue holds
  // more than these.
  int looks = 0;
  const auto queued = [&] {
    ACE_Time_Value past(1);
    ++looks;
    return module_->putq(makeBlock(makeMessage(3, 1)), &past) > looks;
  };
  while (!queued()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  // The leader finds the process stopping before it looks at its queue.
  stopProcessReactor();
  ASSERT_TRUE(module_->init());
  sender.join();
  EXPECT_EQ(0, handled_.counted());
  EXPECT_EQ(1, log_.count("Worker(20) failed to get msg!"));
}

TEST_F(TaskStopTest, SenderWhoseHandlerIsBusySeesTheStopAndItsMessageStaysQueued) {
  Latch inHandler;
  std::atomic<int> result{0};
  auto module = std::make_unique<TestModule>(
      [&](CQOV_Task& task, CQOV_MsgPackage& pkg) {
        if (pkg.head().opc_ == kSilent) {
          inHandler.count();
          return 0;
        }
        result = request(task, makeMessage(1, kSilent, kModule + 1, kModule + 1), kNoLimit);
        return 0;
      },
      2, kModule + 1);
  ASSERT_TRUE(module->init());
  module->putq(makeBlock(makeMessage(3, kAnswered, kModule + 1)), nullptr);
  ASSERT_TRUE(inHandler.waitFor());
  module.reset();
  EXPECT_EQ(-1, result);
  EXPECT_EQ(2, log_.count("Task(21) will exit!"));
}

TEST_F(TaskStopTest, AProcessStopEndsTheLeaderAtItsNextMessage) {
  ASSERT_TRUE(module_->init());
  stopProcessReactor();
  module_->putq(makeBlock(makeMessage(3, 1)), nullptr);
  EXPECT_TRUE(log_.waitFor("Manager thread(20) exit!"));
  EXPECT_TRUE(log_.waitFor("Scheduler thread(20) received stop-message!"));
}

TEST_F(TaskStopTest, AStopThatIsOvertakenByMessagesIsNotLost) {
  ASSERT_TRUE(module_->init());
  stopProcessReactor();
  // The leader leaves its loop at the first of these; the rest, the stop among them, is left over.
  for (int i = 0; i < 100; ++i) {
    ACE_Message_Block* const block = makeBlock(makeMessage(3, 1));
    if (module_->putq(block, nullptr) == -1) {
      qov::releaseWithPackage(block);
    }
  }
  module_.reset();
  EXPECT_EQ(1, log_.count("Manager thread(20) exit!"));
  EXPECT_EQ(1, log_.count("Scheduler thread(20) received stop-message!"));
}

TEST_F(TaskStopTest, TheLeaderClosesOnce) {
  class Counting : public FunctionStaticTask {
   public:
    using FunctionStaticTask::FunctionStaticTask;
    void notifyExit() override {
      ++notices_;
      FunctionStaticTask::notifyExit();
    }
    std::atomic<int> notices_{0};
  };
  Counting task(module_.get(), {}, ignore);
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&task));
  stopLeader();
  stopLeader();
  ASSERT_TRUE(log_.waitFor("Manager thread(20) exit!"));
  module_.reset();
  EXPECT_EQ(1, task.notices_);
  EXPECT_EQ(1, log_.count("Scheduler thread(20) received stop-message!"));
  EXPECT_EQ(1, log_.count("Manager thread(20) exit!"));
}

TEST_F(TaskStopTest, ATaskThatIsToldMayWaitForAThreadThatItWakes) {
  ClosedTask task(module_.get());
  ASSERT_TRUE(module_->init());
  task.startOneByOne(1);
  stopLeader();
  module_.reset();
}

TEST_F(TaskStopTest, ClosingAQueueEndsEveryWaitForIt) {
  ClosedTask task(module_.get());
  task.startOneByOne(3);
  task.notifyExit();
  EXPECT_EQ(0, task.wait());
}

TEST_F(TaskStopTest, ANotifiedTaskSaysSo) {
  CQOV_Task task(module_.get());
  task.notifyExit();
  EXPECT_EQ(1, log_.count("Task will exit!"));
}

TEST_F(TaskStopTest, WhatWaitsForAWorkerIsFreed) {
  const int before = CountedPackage::alive();
  endWhileMessagesWait(log_, 100, [] { return makeMessage(3, 1, kModule + 1); });
  EXPECT_EQ(before, CountedPackage::alive());
}

namespace {

/// Waits at its notice for its thread.
class JoiningWorker : public FunctionWorker {
 public:
  using FunctionWorker::FunctionWorker;
  void notifyExit() override {
    FunctionWorker::notifyExit();
    EXPECT_EQ(0, wait());
  }
};

/// Hands a worker to the pool when it is told of the stop.
class HandingOver : public WorkerBeside {
 public:
  HandingOver(CQOV_TaskMgr* mgr, CQOV_Task* late) : WorkerBeside(mgr, ignore), late_(late) {}
  void notifyExit() override {
    EXPECT_EQ(0, taskMgr()->idle(late_));
    WorkerBeside::notifyExit();
  }

 private:
  CQOV_Task* const late_;
};

}  // namespace

TEST_F(TaskStopTest, AWorkerThatComesToThePoolAfterTheStopMayBeWaitedForAtItsNotice) {
  // What waits for a worker wakes it then.
  Latch release;
  TestModule module(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        EXPECT_TRUE(release.waitFor());
        return 0;
      },
      1, kModule + 1);
  constexpr long kFlags = THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED;
  auto* const late = new JoiningWorker(&module, [this](CQOV_Task&, CQOV_MsgPackage&) {
    handled_.count();
    return 0;
  });
  ASSERT_EQ(0, late->activate(kFlags));
  // Started before the scheduler, so told before it.
  HandingOver first(&module, late);
  ASSERT_EQ(0, first.activate(kFlags, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, module.gid()));
  logDebug(true);
  ASSERT_TRUE(module.init());
  for (int i = 0; i < 2; ++i) {
    ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, kSilent, kModule + 1)), nullptr));
  }
  ASSERT_TRUE(log_.waitFor("wait worker thread is empty begin num("));
  logDebug(false);
  std::thread stopper([&] { module.stop(); });
  EXPECT_TRUE(handled_.waitFor());
  EXPECT_TRUE(log_.waitFor("Manager thread(21) exit!"));
  release.count();
  stopper.join();
}
