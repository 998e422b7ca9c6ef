#include <gtest/gtest.h>

#include <thread>

#include "tests/task/task_fixture.h"

namespace {

constexpr std::uint64_t kStaticOpc = 100;
constexpr std::uint64_t kPoolOpc = 200;
constexpr std::uint64_t kSilentOpc = 300;

class StaticTaskTest : public TaskTest {
 protected:
  StaticTaskTest()
      : module_(std::make_unique<TestModule>([this](CQOV_Task& task, CQOV_MsgPackage& pkg) {
          inPool_.count();
          return pkg.head().opc_ == kSilentOpc || pkg.head().type_ != 1 ? 0 : answer(task, pkg);
        })) {}

  FunctionStaticTask& insert(FunctionWorker::Handler handler) {
    task_ = std::make_unique<FunctionStaticTask>(
        module_.get(), std::list<unsigned long long>{kStaticOpc}, std::move(handler));
    EXPECT_EQ(0, module_->insertStaticScheduledTask(task_.get()));
    return *task_;
  }

  void send(int type, std::uint64_t opc, std::uint8_t sender = kModule + 1) {
    ASSERT_LT(0, module_->putq(makeBlock(makeMessage(type, opc, kModule, sender)), nullptr));
  }

  Latch inPool_;
  Latch inStatic_;
  // Declared first: a static task outlives its module.
  std::unique_ptr<FunctionStaticTask> task_;
  std::unique_ptr<TestModule> module_;
};

}  // namespace

TEST_F(StaticTaskTest, ANullTaskIsRefused) {
  EXPECT_EQ(-1, module_->insertStaticScheduledTask(nullptr));
  EXPECT_EQ(1, log_.count("Null pointer of pStaticScheduledTask."));
}

TEST_F(StaticTaskTest, TakesRequestsAndAsynchronousMessagesOfItsOperations) {
  ASSERT_TRUE(module_->init());
  const FunctionStaticTask& task = insert([this](CQOV_Task& self, CQOV_MsgPackage&) {
    EXPECT_EQ(&self, getCurrentTask());
    inStatic_.count();
    return 0;
  });
  EXPECT_EQ(1U, task.thr_count());
  send(1, kStaticOpc);
  send(3, kStaticOpc);
  send(4, kStaticOpc);
  send(3, kPoolOpc);
  EXPECT_TRUE(inStatic_.waitFor(3));
  EXPECT_TRUE(inPool_.waitFor(1));
}

TEST_F(StaticTaskTest, TheFirstTaskOfAnOperationKeepsIt) {
  ASSERT_TRUE(module_->init());
  FunctionStaticTask second(module_.get(), {kStaticOpc}, [](CQOV_Task&, CQOV_MsgPackage&) {
    ADD_FAILURE() << "the operation belongs to the first task";
    return 0;
  });
  insert([this](CQOV_Task&, CQOV_MsgPackage&) {
    inStatic_.count();
    return 0;
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&second));
  send(3, kStaticOpc);
  EXPECT_TRUE(inStatic_.waitFor());
  module_.reset();
}

TEST_F(StaticTaskTest, WaitsForAResponseWhileRequestsQueueUp) {
  ASSERT_TRUE(module_->init());
  std::atomic<int> inside{0};
  insert([&](CQOV_Task& task, CQOV_MsgPackage&) {
    EXPECT_EQ(1, ++inside);
    EXPECT_EQ(0, request(task, makeMessage(1, kPoolOpc), kLong));
    --inside;
    inStatic_.count();
    return 0;
  });
  for (int i = 0; i < 20; ++i) {
    send(3, kStaticOpc);
  }
  EXPECT_TRUE(inStatic_.waitFor(20));
}

TEST_F(StaticTaskTest, ItsRequestsTimeOut) {
  ASSERT_TRUE(module_->init());
  insert([&](CQOV_Task& task, CQOV_MsgPackage&) {
    EXPECT_EQ(-1, request(task, makeMessage(1, kSilentOpc), kShort));
    EXPECT_EQ(0, request(task, makeMessage(1, kPoolOpc), kLong));
    inStatic_.count();
    return 0;
  });
  send(3, kStaticOpc);
  EXPECT_TRUE(inStatic_.waitFor());
  EXPECT_EQ(1, log_.count("Worker(20) failed to get msg!"));
}

TEST_F(StaticTaskTest, AWakeUpOfAnEarlierRequestDoesNotEndTheNext) {
  ASSERT_TRUE(module_->init());
  insert([&](CQOV_Task& task, CQOV_MsgPackage&) {
    // Often, since a response that comes before the wait begins is taken in any case.
    for (int i = 0; i < 200; ++i) {
      task.wakeup();
      EXPECT_EQ(0, request(task, makeMessage(1, kPoolOpc), kLong));
    }
    inStatic_.count();
    return 0;
  });
  send(3, kStaticOpc);
  EXPECT_TRUE(inStatic_.waitFor());
}

TEST_F(StaticTaskTest, AStopEndsItsWaitForAResponse) {
  ASSERT_TRUE(module_->init());
  insert([&](CQOV_Task& task, CQOV_MsgPackage&) {
    inStatic_.count();
    EXPECT_EQ(-1, request(task, makeMessage(1, kSilentOpc), kNoLimit));
    return 0;
  });
  send(3, kStaticOpc);
  ASSERT_TRUE(inStatic_.waitFor());
  ASSERT_TRUE(inPool_.waitFor());
  module_.reset();
}

TEST_F(StaticTaskTest, AStopEndsItsWaitForAResponseThatIsNotPendingAnyMore) {
  ASSERT_TRUE(module_->init());
  insert([&](CQOV_Task& task, CQOV_MsgPackage&) {
    // Nobody has this module: the leader gives the request up, and does not wake the slot.
    EXPECT_EQ(-1, request(task, makeMessage(1, kPoolOpc, kModule + 5), kNoLimit));
    return 0;
  });
  send(3, kStaticOpc);
  ASSERT_TRUE(log_.waitFor("Pid 25 is invalid!"));
  module_.reset();
  EXPECT_EQ(1, log_.count("Worker(20) failed to get msg!"));
}

TEST_F(StaticTaskTest, AStopIsNotLostBetweenTwoWaits) {
  ASSERT_TRUE(module_->init());
  insert([&](CQOV_Task& task, CQOV_MsgPackage&) {
    inStatic_.count();
    while (request(task, makeMessage(1, kPoolOpc), kNoLimit) == 0) {
    }
    return 0;
  });
  send(3, kStaticOpc);
  ASSERT_TRUE(inPool_.waitFor(50));
  module_.reset();
}

TEST_F(StaticTaskTest, InsertedBeforeInitItIsStillStoppedAndJoined) {
  const FunctionStaticTask& task = insert(ignore);
  module_.reset();
  EXPECT_EQ(0U, task.thr_count());
}

TEST_F(StaticTaskTest, InsertedAfterTheModuleStoppedItEndsAtOnce) {
  ASSERT_TRUE(module_->init());
  module_->putq(new ACE_Message_Block(0, ACE_Message_Block::MB_STOP), nullptr);
  ASSERT_TRUE(log_.waitFor("Manager thread(20) exit!"));
  FunctionStaticTask& task = insert(ignore);
  EXPECT_EQ(0, task.wait());
}

TEST_F(StaticTaskTest, ATaskThatRunsAlreadyIsNotInsertedAgain) {
  ASSERT_TRUE(module_->init());
  FunctionStaticTask& task = insert(ignore);
  EXPECT_EQ(-1, module_->insertStaticScheduledTask(&task));
}

TEST_F(StaticTaskTest, MayAskItsModuleForItsOperations) {
  ASSERT_TRUE(module_->init());
  class Asking : public FunctionStaticTask {
   public:
    using FunctionStaticTask::FunctionStaticTask;
    void getOpcList(std::list<unsigned long long>& opcs) override {
      CQOV_Task asker(taskMgr());
      EXPECT_EQ(0, request(asker, makeMessage(1, kPoolOpc), kLong));
      FunctionStaticTask::getOpcList(opcs);
    }
  };
  insert(ignore);
  Asking asking(module_.get(), {kPoolOpc}, ignore);
  EXPECT_EQ(0, module_->insertStaticScheduledTask(&asking));
  module_.reset();
}

TEST_F(StaticTaskTest, WhatQueuesBehindItsEndDoesNotFillTheModule) {
  ASSERT_TRUE(module_->init());
  Latch release;
  FunctionStaticTask& task = insert([&](CQOV_Task&, CQOV_MsgPackage&) {
    inStatic_.count();
    EXPECT_TRUE(release.waitFor());
    return 0;
  });
  send(3, kStaticOpc);
  ASSERT_TRUE(inStatic_.waitFor());
  task.notifyExit();
  ACE_Time_Value refuseAtOnce(1);
  for (;;) {
    ACE_Message_Block* const block = makeBlock(makeMessage(3, kStaticOpc, kModule, kModule + 1));
    if (module_->putq(block, &refuseAtOnce) == -1) {
      qov::releaseWithPackage(block);
      break;
    }
  }
  release.count();
  ASSERT_EQ(0, task.wait());
  send(3, kPoolOpc);
  EXPECT_TRUE(inPool_.waitFor());
}

TEST_F(StaticTaskTest, AMessageToATaskThatEndedIsDroppedAndLogged) {
  ASSERT_TRUE(module_->init());
  FunctionStaticTask& task = insert(ignore);
  task.notifyExit();
  ASSERT_EQ(0, task.wait());
  send(3, kStaticOpc);
  EXPECT_TRUE(log_.waitFor("The receiver in module 20 has ended: OPC=100,SN="));
}

TEST_F(StaticTaskTest, IdleDoesNothing) {
  FunctionStaticTask task(module_.get(), {}, ignore);
  EXPECT_EQ(0, task.idle());
  EXPECT_EQ(0, log_.count("Null pointer"));
}
