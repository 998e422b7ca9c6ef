#include <ace/Log_Msg.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/task/task_fixture.h"

namespace {

class TaskSendTest : public TaskTest {
 protected:
  TaskSendTest()
      : module_([](CQOV_Task& task, CQOV_MsgPackage& pkg) {
          // An answer to another process stays with nobody: the runtime leaves it alone.
          const bool local = pkg.head().spid_ == kPid;
          return local ? answer(task, pkg, static_cast<std::uint8_t>(pkg.head().opc_)) : 0;
        }),
        task_(&module_) {}

  TestModule module_;
  CQOV_Task task_;
};

}  // namespace

TEST_F(TaskSendTest, RefusesAResponsePointerThatIsNotNullAndFreesTheRequest) {
  CQOV_MsgPackage occupied;
  CQOV_MsgPackage* response = &occupied;
  const int before = CountedPackage::alive();
  EXPECT_EQ(-1, task_.send(makeMessage(1, 1).release(), response, nullptr, true));
  EXPECT_EQ(before, CountedPackage::alive());
  EXPECT_EQ(&occupied, response);
  EXPECT_EQ(1, log_.count("reqest-pointor is null pointor, or respond-pointor is not null!"));
}

TEST_F(TaskSendTest, RefusesAResponsePointerThatIsNotNullAndLeavesTheRequest) {
  CQOV_MsgPackage occupied;
  CQOV_MsgPackage* response = &occupied;
  const auto message = makeMessage(1, 1);
  EXPECT_EQ(-1, task_.send(message.get(), response, nullptr, false));
  EXPECT_EQ(1, message->head().type_);
}

TEST_F(TaskSendTest, RefusesNull) {
  CQOV_MsgPackage* response = nullptr;
  EXPECT_EQ(-1, task_.send(nullptr, response, nullptr, true));
  EXPECT_EQ(1, log_.count("reqest-pointor is null pointor, or respond-pointor is not null!"));
  EXPECT_EQ(-1, task_.send(nullptr, nullptr, true));
  EXPECT_EQ(1, log_.count("Null pointer of pReq!"));
}

TEST_F(TaskSendTest, GivesTheResultFieldOfTheResponseAndNoResponse) {
  ASSERT_TRUE(module_.init());
  CQOV_MsgPackage* response = nullptr;
  EXPECT_EQ(5, task_.send(makeMessage(1, 5).release(), response, nullptr, true));
  EXPECT_EQ(nullptr, response);
}

TEST_F(TaskSendTest, GivesZeroAndTheResponseForAResultFieldOfZero) {
  ASSERT_TRUE(module_.init());
  CQOV_MsgPackage* response = nullptr;
  EXPECT_EQ(0, task_.send(makeMessage(1, 0).release(), response, nullptr, true));
  ASSERT_NE(nullptr, response);
  delete response;
}

TEST_F(TaskSendTest, AMessageToAStoppedModuleIsFreedOnRequestOnly) {
  ASSERT_TRUE(module_.init());
  module_.putq(new ACE_Message_Block(0, ACE_Message_Block::MB_STOP), nullptr);
  ASSERT_TRUE(log_.waitFor("Manager thread(20) exit!"));
  const int before = CountedPackage::alive();
  CQOV_MsgPackage* response = nullptr;
  EXPECT_EQ(-1, task_.send(makeMessage(1, 1).release(), response, nullptr, true));
  EXPECT_EQ(-1, task_.send(makeMessage(3, 1).release(), nullptr, true));
  EXPECT_EQ(before, CountedPackage::alive());
  EXPECT_EQ(1, log_.count("Worker(20) failed to send msg!"));
  const auto kept = makeMessage(1, 1);
  EXPECT_EQ(-1, task_.send(kept.get(), response, nullptr, false));
  EXPECT_EQ(-1, task_.send(kept.get(), nullptr, false));
}

TEST_F(TaskSendTest, RefusesAResponseBlockOfTheWrongLength) {
  // Outlives the module, whose leader still holds the request when send() is over.
  std::unique_ptr<CQOV_Task> sender;
  TestModule module(ignore, 1, kModule + 1);
  ASSERT_TRUE(module.init());
  sender = std::make_unique<CQOV_Task>(&module);
  auto* const block = new ACE_Message_Block(4);
  block->wr_ptr(4);
  ASSERT_EQ(0, sender->putMsg(2, block, nullptr));
  EXPECT_EQ(-1, request(*sender, makeMessage(1, 0, kModule + 1, kModule + 1), kNoLimit));
  EXPECT_EQ(1, log_.count("Message length isn't equal to 8."));
}

TEST_F(TaskSendTest, CannotWaitForWhatIsNotItsOwnRequest) {
  ASSERT_TRUE(module_.init());
  // An asynchronous message, a request of another module, and one whose sender was never filled in.
  EXPECT_EQ(-1, request(task_, makeMessage(3, 0), kNoLimit));
  EXPECT_EQ(-1, request(task_, makeMessage(1, 0, kModule, kModule + 1), kNoLimit));
  auto unaddressed = makeMessage(1, 0);
  unaddressed->head().spid_ = 255;
  unaddressed->head().smid_ = 255;
  EXPECT_EQ(-1, request(task_, std::move(unaddressed), kNoLimit));
  EXPECT_EQ(3,
            log_.count("Module(20) cannot wait for the response to a message that is not its own "
                       "request!"));
}

TEST_F(TaskSendTest, AWakeUpOfAnEarlierSendDoesNotEndThisOne) {
  ASSERT_TRUE(module_.init());
  // Often, since a response that comes before the wait begins is taken in any case.
  for (int i = 0; i < 200; ++i) {
    task_.wakeup();
    ASSERT_EQ(0, request(task_, makeMessage(1, 0), kNoLimit));
  }
}

TEST_F(TaskSendTest, GetMsgLeavesTheBlockAloneWhenWoken) {
  task_.wakeup();
  ACE_Message_Block mine;
  ACE_Message_Block* block = &mine;
  EXPECT_NE(-1, task_.getMsg(block));
  EXPECT_EQ(&mine, block);
}

TEST_F(TaskSendTest, TracesBothDirectionsAtTheDebugLevel) {
  ASSERT_TRUE(module_.init());
  ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
  ace.priority_mask(ace.priority_mask(ACE_Log_Msg::PROCESS) | LM_DEBUG, ACE_Log_Msg::PROCESS);
  auto message = makeMessage(1, 0);
  message->head().sn_ = 0x1F;
  CQOV_MsgPackage* response = nullptr;
  EXPECT_EQ(0, task_.send(message.release(), response, nullptr, true));
  delete response;
  EXPECT_EQ(1,
            log_.count("Worker(20) send msg: SPID=7,SMID=20,RPID=7,RMID=20,OPC=0,SN=0x1f,TP=1!\n"));
  EXPECT_EQ(1,
            log_.count("Worker(20) send msg: SPID=7,SMID=20,RPID=7,RMID=20,OPC=0,SN=0x1f,TP=2."));
  EXPECT_EQ(1,
            log_.count("Worker(20) recv msg: SPID=7,SMID=20,RPID=7,RMID=20,OPC=0,SN=0x1f,TP=2!\n"));
}
