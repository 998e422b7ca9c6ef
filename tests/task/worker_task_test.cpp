#include <gtest/gtest.h>
#include <pthread.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "tests/support/sanitizers.h"
#include "tests/task/task_fixture.h"

namespace {

/// Fails in the way that the operation code says, else counts.
int misbehave(Latch& handled, CQOV_MsgPackage& pkg) {
  switch (pkg.head().opc_) {
    case 1:
      throw std::runtime_error("a handler's failure");
    case 2:
      throw 42;
    case 3:
      return -3;
    default:
      handled.count();
      return 0;
  }
}

/// Cannot be dumped.
class BadPackage : public CountedPackage {
 public:
  void dump(std::ostringstream&) const override { throw 42; }
};

class WorkerTaskTest : public TaskTest {
 protected:
  static void send(CQOV_TaskMgr& module, std::unique_ptr<CQOV_MsgPackage> message) {
    ASSERT_LT(0, module.putq(makeBlock(std::move(message)), nullptr));
  }

  /// Has the only worker of a module fail with `message`, and then serve another one.
  static void misbehaveAndGoOn(std::unique_ptr<CQOV_MsgPackage> message) {
    Latch handled;
    TestModule module([&](CQOV_Task&, CQOV_MsgPackage& pkg) { return misbehave(handled, pkg); }, 1);
    ASSERT_TRUE(module.init());
    send(module, std::move(message));
    send(module, makeMessage(3, 0));
    ASSERT_TRUE(handled.waitFor());
  }

  Latch handled_;
};

class Answering : public CQOV_CommonTaskEx {
 public:
  Answering(CQOV_TaskMgr* mgr, Latch& handled) : CQOV_CommonTaskEx(mgr), handled_(handled) {}

  int handleRequest(CQOV_MsgPackage& req, CQOV_MsgPackage*& rsp) override {
    handled_.count();
    if (req.head().opc_ == 1) {
      rsp = new CountedPackage;
      auto record = std::make_unique<CTLVRecordV3>(4711);
      rsp->append(record.release());
    }
    if (req.head().opc_ == 2) {
      rsp = new CountedPackage;
      throw std::runtime_error("after the answer was built");
    }
    return -9;
  }

 private:
  Latch& handled_;
};

class AnsweringModule : public CQOV_TaskMgr {
 public:
  explicit AnsweringModule(Latch& handled)
      : CQOV_TaskMgr(kModule, 1, "answering"), handled_(handled) {}
  CQOV_Task* createTask() override { return new Answering(this, handled_); }

 private:
  Latch& handled_;
};

}  // namespace

TEST_F(WorkerTaskTest, AHandlerThatThrowsLeavesTheWorkerInThePool) {
  misbehaveAndGoOn(makeMessage(3, 1));
  EXPECT_EQ(1, log_.count("[ERR][QOVPUBLIC][handle,"));
  EXPECT_EQ(1, log_.count("Failed to handle message, error is "));
  EXPECT_EQ(1, log_.count("\n{\n  VER=1\n  TYP=3\n"));
}

TEST_F(WorkerTaskTest, AHandlerMayThrowAnything) {
  misbehaveAndGoOn(makeMessage(3, 2));
  EXPECT_EQ(1, log_.count("Failed to handle message, error is 0!\n{\n"));
}

TEST_F(WorkerTaskTest, AHandlerThatEndsItsThreadCostsTheModuleThatWorkerOnly) {
#if QOV_TEST_TSAN
  // ACE takes the lock of a task and that of its thread manager in one order where a thread is
  // started and in the other one where it exits by itself; never for the same task at once.
  GTEST_SKIP() << "reported as a lock order inversion within ACE";
#endif
  TestModule module(
      [this](CQOV_Task&, CQOV_MsgPackage& pkg) {
        if (pkg.head().opc_ == 1) {
          pthread_exit(nullptr);
        }
        return misbehave(handled_, pkg);
      },
      2);
  ASSERT_TRUE(module.init());
  send(module, makeMessage(3, 1));
  for (int i = 1; i <= 5; ++i) {
    send(module, makeMessage(3, 0));
    ASSERT_TRUE(handled_.waitFor(i));
  }
  EXPECT_EQ(0, log_.count("Failed to handle message"));
}

TEST_F(WorkerTaskTest, AnErrorCodeIsLoggedWithADumpOfTheMessage) {
  misbehaveAndGoOn(makeMessage(3, 3));
  EXPECT_EQ(1, log_.count("Failed to handle message, error code is -3!\n{\n  VER=1\n  TYP=3\n"));
}

TEST_F(WorkerTaskTest, AFailureWithAMessageThatCannotBeDumpedIsLoggedWithoutIt) {
  for (const std::uint64_t opc : {2U, 3U}) {
    auto message = std::make_unique<BadPackage>();
    message->head() = makeMessage(3, opc)->head();
    misbehaveAndGoOn(std::move(message));
  }
  EXPECT_EQ(1, log_.count("Failed to handle message, error is 0!\n\n"));
  EXPECT_EQ(1, log_.count("Failed to handle message, error code is -3!\n\n"));
}

TEST_F(WorkerTaskTest, ABlockOfTheWrongLengthIsRefusedAndTheWorkerGoesOn) {
  TestModule module(ignore);
  FunctionStaticTask task(&module, {1}, [this](CQOV_Task&, CQOV_MsgPackage&) {
    handled_.count();
    return 0;
  });
  ASSERT_EQ(0, module.insertStaticScheduledTask(&task));
  auto* const block = new ACE_Message_Block(3);
  block->wr_ptr(3);
  task.putMsg(3, block, nullptr);
  task.putMsg(3, makeBlock(makeMessage(3, 1)), nullptr);
  ASSERT_TRUE(handled_.waitFor());
  EXPECT_EQ(1, log_.count("Invalid message, length isn't equal to 8."));
  task.notifyExit();
  EXPECT_EQ(0, task.wait());
}

TEST_F(WorkerTaskTest, APulseOfTheQueueIsLoggedAndTheWorkerGoesOn) {
  TestModule module(ignore);
  FunctionStaticTask task(&module, {1}, ignore);
  ASSERT_EQ(0, module.insertStaticScheduledTask(&task));
  task.msg_queue()->pulse();
  EXPECT_TRUE(log_.waitFor("Get message from message queue failed."));
  task.notifyExit();
  EXPECT_EQ(0, task.wait());
  EXPECT_EQ(1, log_.count("Task(20) will exit!"));
}

TEST_F(WorkerTaskTest, AnswersARequestWithTheHandlersResponse) {
  AnsweringModule module(handled_);
  ASSERT_TRUE(module.init());
  CQOV_Task task(&module);
  std::unique_ptr<CQOV_MsgPackage> response;
  auto message = makeMessage(1, 1);
  message->head().cid_ = 31;
  message->head().flags_ = 2;
  const QOVMsgHead head = message->head();
  ASSERT_EQ(0, request(task, std::move(message), kLong, &response));
  ASSERT_EQ(1U, response->count());
  EXPECT_EQ(4711U, (*response)[0].cmd());
  EXPECT_EQ(2, response->head().type_);
  EXPECT_EQ(head.sn_, response->head().sn_);
  EXPECT_EQ(head.opc_, response->head().opc_);
  EXPECT_EQ(31, response->head().cid_);
  EXPECT_EQ(2, response->head().flags_);
}

TEST_F(WorkerTaskTest, AnswersWithTheAddressesOfTheRequestAsTheyAre) {
  AnsweringModule module(handled_);
  ASSERT_TRUE(module.init());
  // Sent back to where it came from, this answer would reach module 21. As it is, its receiver is
  // this module, where nobody waits for it.
  ASSERT_LT(0, module.putq(makeBlock(makeMessage(1, 7, kModule, kModule + 1)), nullptr));
  EXPECT_TRUE(log_.waitFor("Failed to handle RSP message: SPID=7,SMID=21,OPC=7,SN="));
}

TEST_F(WorkerTaskTest, AnswersARequestByItselfWithTheResult) {
  AnsweringModule module(handled_);
  ASSERT_TRUE(module.init());
  CQOV_Task task(&module);
  auto message = makeMessage(1, 7);
  message->append(new CTLVRecordV3(815));
  std::unique_ptr<CQOV_MsgPackage> response;
  ASSERT_EQ(0, request(task, std::move(message), kLong, &response));
  ASSERT_EQ(1U, response->count());
  const CTLVRecordV3& record = (*response)[0];
  EXPECT_EQ(815U, record.cmd());
  EXPECT_EQ(8U, record.length());
  EXPECT_EQ("4294967287", record[4095].toString());
  EXPECT_EQ(CTLVCell::TLV_UINT, record[4095].type());
}

TEST_F(WorkerTaskTest, AnswersARequestWithoutRecordsWithCommandCodeZero) {
  AnsweringModule module(handled_);
  ASSERT_TRUE(module.init());
  CQOV_Task task(&module);
  std::unique_ptr<CQOV_MsgPackage> response;
  ASSERT_EQ(0, request(task, makeMessage(1, 7), kLong, &response));
  ASSERT_EQ(1U, response->count());
  EXPECT_EQ(0U, (*response)[0].cmd());
}

TEST_F(WorkerTaskTest, AnswersNoAsynchronousMessageByItself) {
  AnsweringModule module(handled_);
  ASSERT_TRUE(module.init());
  send(module, makeMessage(3, 7));
  send(module, makeMessage(4, 7));
  ASSERT_TRUE(log_.waitFor("Failed to handle message, error code is -9!", 2));
  // An answer would have been in the leader's queue before this request.
  CQOV_Task task(&module);
  ASSERT_EQ(0, request(task, makeMessage(1, 7), kLong));
  EXPECT_EQ(0, log_.count("Failed to handle RSP message"));
}

TEST_F(WorkerTaskTest, FreesTheAnswerOfAHandlerThatThrows) {
  AnsweringModule module(handled_);
  ASSERT_TRUE(module.init());
  send(module, makeMessage(3, 2));
  EXPECT_TRUE(log_.waitFor("Failed to handle message, error is "));
}
