#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>

#include "tests/support/sleeping_thread.h"
#include "tests/task/task_fixture.h"

// Tasks that a module makes by itself and hands to its pool. The fixture sees to it that every one
// of them is gone in the end.

namespace {

constexpr int kJoinable = THR_NEW_LWP | THR_JOINABLE;

class IdleHandoverTest : public TaskTest {
 protected:
  /// A task of the test's own making; the pool owns it once it is handed over.
  FunctionWorker* makeTask() {
    return new FunctionWorker(module_.get(), [this](CQOV_Task& task, CQOV_MsgPackage&) {
      EXPECT_EQ(&task, getCurrentTask());
      served_.count();
      return 0;
    });
  }

  /// A module whose own workers stay busy until the gate opens.
  void start(unsigned int pool) {
    module_ = std::make_unique<TestModule>(
        [this](CQOV_Task&, CQOV_MsgPackage&) {
          busy_.count();
          EXPECT_TRUE(gate_.waitFor());
          return 0;
        },
        pool);
    ASSERT_TRUE(module_->init());
  }

  void send(int count = 1) {
    for (int i = 0; i < count; ++i) {
      ASSERT_LT(0, module_->putq(makeBlock(makeMessage(3, 1)), nullptr));
    }
  }

  void TearDown() override { gate_.count(); }

  Latch served_;
  Latch busy_;
  Latch gate_;
  std::unique_ptr<TestModule> module_;
};

}  // namespace

TEST_F(IdleHandoverTest, AStartedTaskIsServedInItsTurnAndGoesWithThePool) {
  start(1);
  FunctionWorker* const task = makeTask();
  ASSERT_EQ(0, task->activate(kJoinable, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, kModule));
  ASSERT_EQ(0, module_->idle(task));
  // The module's own worker has been idle for longer.
  send();
  ASSERT_TRUE(busy_.waitFor());
  send(50);
  EXPECT_TRUE(served_.waitFor(50));
}

TEST_F(IdleHandoverTest, ATaskOutsideTheGroupIsToldToEndAndJoinedToo) {
  start(0);
  FunctionWorker* const task = makeTask();
  ASSERT_EQ(0, task->activate());
  ASSERT_EQ(0, task->idle());
  send(3);
  EXPECT_TRUE(served_.waitFor(3));
  module_.reset();
  EXPECT_EQ(1, log_.count("Task(20) will exit!"));
}

TEST_F(IdleHandoverTest, ATaskThatIsHandedOverBeforeItsStartIsServedAgainAndAgain) {
  start(0);
  FunctionWorker* const task = makeTask();
  ASSERT_EQ(0, module_->idle(task));
  send();
  ASSERT_EQ(0, task->activate(kJoinable, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, kModule));
  send(20);
  EXPECT_TRUE(served_.waitFor(21));
  module_.reset();
  EXPECT_EQ(1, log_.count("Task(20) will exit!"));
}

TEST_F(IdleHandoverTest, ATaskThatIsNeverStartedIsDeletedWithThePool) {
  start(0);
  ASSERT_EQ(0, module_->idle(makeTask()));
  send();
}

TEST_F(IdleHandoverTest, ATaskIsTakenOverOnceHoweverOftenItIsHandedOver) {
  start(0);
  FunctionWorker* const task = makeTask();
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(0, module_->idle(task));
  }
  ASSERT_EQ(0, task->activate());
  send(5);
  EXPECT_TRUE(served_.waitFor(5));
}

TEST_F(IdleHandoverTest, AWorkersLoopHandsItsTaskOver) {
  // It was started for itself, and its loop calls idle() after its first message.
  start(0);
  FunctionWorker* const task = makeTask();
  ASSERT_EQ(0, task->activate());
  ASSERT_EQ(0, task->putMsg(3, makeBlock(makeMessage(3, 1)), nullptr));
  send(2);
  EXPECT_TRUE(served_.waitFor(3));
}

TEST_F(IdleHandoverTest, ATaskThatIsHandedOverDuringTheStopIsToldToEndAndMayJoinItsThread) {
  class Joining : public FunctionWorker {
   public:
    using FunctionWorker::FunctionWorker;
    int svc() override {
      id_ = ::gettid();
      return FunctionWorker::svc();
    }
    void notifyExit() override {
      FunctionWorker::notifyExit();
      wait();
    }

    std::atomic<pid_t> id_{0};
  };
  Latch inHandler;
  std::unique_ptr<TestModule> module;
  module = std::make_unique<TestModule>(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        inHandler.count();
        EXPECT_TRUE(log_.waitFor("Manager thread(20) exit!"));
        auto* const late = new Joining(module.get(), ignore);
        EXPECT_EQ(0, late->activate());
        qov::test::waitForThread([&] { return late->id_ != 0 && qov::test::sleeps(late->id_); },
                                 "sleeps");
        EXPECT_EQ(0, module->idle(late));
        return 0;
      },
      1);
  ASSERT_TRUE(module->init());
  ASSERT_LT(0, module->putq(makeBlock(makeMessage(3, 1)), nullptr));
  ASSERT_TRUE(inHandler.waitFor());
  module->stop();
  EXPECT_EQ(2, log_.count("Task(20) will exit!"));
}

TEST_F(IdleHandoverTest, AFactoryMayHandItsTasksOverByItself) {
  class Eager : public TestModule {
   public:
    explicit Eager(FunctionWorker::Handler handler) : TestModule(std::move(handler), 2) {}
    CQOV_Task* createTask() override {
      CQOV_Task* const task = TestModule::createTask();
      EXPECT_EQ(0, task->idle());
      return task;
    }
  };
  Eager module([this](CQOV_Task&, CQOV_MsgPackage&) {
    served_.count();
    return 0;
  });
  ASSERT_TRUE(module.init());
  for (int i = 0; i < 10; ++i) {
    ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, 1)), nullptr));
  }
  EXPECT_TRUE(served_.waitFor(10));
}
