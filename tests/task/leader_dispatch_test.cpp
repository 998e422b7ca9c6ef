#include <gtest/gtest.h>

#include <string>

#include "tests/task/task_fixture.h"

namespace {

class LeaderDispatchTest : public TaskTest {
 protected:
  LeaderDispatchTest()
      : module_([this](CQOV_Task&, CQOV_MsgPackage& pkg) {
          lastType_ = pkg.head().type_;
          handled_.count();
          return 0;
        }) {}

  void SetUp() override { ASSERT_TRUE(module_.init()); }

  void put(ACE_Message_Block* block) { ASSERT_LT(0, module_.putq(block, nullptr)); }
  void put(std::unique_ptr<CQOV_MsgPackage> message) { put(makeBlock(std::move(message))); }

  ACE_Message_Block* blockOfBytes(std::size_t bytes) {
    auto* const block = new ACE_Message_Block(bytes);
    block->wr_ptr(bytes);
    return block;
  }

  std::atomic<int> lastType_{0};
  Latch handled_;
  TestModule module_;
};

}  // namespace

TEST_F(LeaderDispatchTest, RefusesABlockOfSevenBytes) {
  put(blockOfBytes(7));
  EXPECT_TRUE(log_.waitFor("Manager thread(20) received invalid message!"));
}

TEST_F(LeaderDispatchTest, RefusesABlockOfNineBytes) {
  put(blockOfBytes(9));
  EXPECT_TRUE(log_.waitFor("Manager thread(20) received invalid message!"));
}

TEST_F(LeaderDispatchTest, RefusesABlockWhosePointerCannotBeCopied) {
  // It says that it has 8 bytes, and has none.
  auto* const block = new ACE_Message_Block;
  block->base(nullptr, 0);
  block->wr_ptr(8);
  put(block);
  EXPECT_TRUE(log_.waitFor("Copy message error!"));
  EXPECT_EQ(0, log_.count("Null message!"));
}

TEST_F(LeaderDispatchTest, RefusesARequestWhoseDescriptorCannotBeCopied) {
  ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
  block->cont(blockOfBytes(4));
  put(block);
  EXPECT_TRUE(log_.waitFor("Copy message error!"));
  // The leader has gone on.
  put(makeMessage(3, 1));
  ASSERT_TRUE(handled_.waitFor(1));
  EXPECT_EQ(3, lastType_);
}

TEST_F(LeaderDispatchTest, RefusesABlockWithoutAPackage) {
  put(makeBlock(nullptr));
  EXPECT_TRUE(log_.waitFor("Null message!"));
}

TEST_F(LeaderDispatchTest, RefusesAnUnknownBlockType) {
  put(new ACE_Message_Block(0, ACE_Message_Block::MB_USER));
  EXPECT_TRUE(log_.waitFor("Manager thread(20) received unknown message type!"));
}

TEST_F(LeaderDispatchTest, DropsMessagesOfUnknownTypes) {
  for (const int type : {0, 5, 6, 255}) {
    put(makeMessage(type, 1));
  }
  EXPECT_TRUE(log_.waitFor("Manager thread(20) received unknown message type!", 4));
  EXPECT_EQ(0, handled_.counted());
}

TEST_F(LeaderDispatchTest, HandsBothAsynchronousTypesToTheWorkers) {
  put(makeMessage(3, 1));
  ASSERT_TRUE(handled_.waitFor(1));
  EXPECT_EQ(3, lastType_);
  put(makeMessage(4, 1));
  ASSERT_TRUE(handled_.waitFor(2));
  EXPECT_EQ(4, lastType_);
}

TEST_F(LeaderDispatchTest, HandsARequestOfAnotherModuleToTheWorkersWithoutWaitingForAnything) {
  put(makeMessage(1, 1, kModule, kModule + 1));
  ASSERT_TRUE(handled_.waitFor(1));
  EXPECT_EQ(1, lastType_);
}

TEST_F(LeaderDispatchTest, DropsAnAsynchronousMessageToAModuleThatDoesNotExist) {
  auto message = makeMessage(3, 77, kModule + 1);
  const std::string sn = std::to_string(message->head().sn_);
  put(std::move(message));
  EXPECT_TRUE(log_.waitFor("Pid 21 is invalid!"));
  EXPECT_TRUE(log_.waitFor("Failed to forword message: RPID=7,RMID=21,OPC=77,SN=" + sn + "!\n"));
}

TEST_F(LeaderDispatchTest, NamesTheReceiverInThePlacesOfTheSenderWhenAResponseCannotBeForwarded) {
  auto message = makeMessage(2, 77, kModule + 1);
  const std::string sn = std::to_string(message->head().sn_);
  put(std::move(message));
  EXPECT_TRUE(log_.waitFor("Failed to forword message: SPID=7,SMID=21,OPC=77,SN=" + sn + "!\n"));
}

TEST_F(LeaderDispatchTest, DropsAResponseThatNobodyWaitsFor) {
  auto message = makeMessage(2, 77, kModule, kModule + 3);
  const std::string sn = std::to_string(message->head().sn_);
  put(std::move(message));
  EXPECT_TRUE(log_.waitFor("Failed to handle RSP message: SPID=7,SMID=23,OPC=77,SN=" + sn + "!\n"));
}

TEST_F(LeaderDispatchTest, NeitherDeliversNorReleasesAMessageToAnotherProcess) {
  auto message = makeMessage(3, 1);
  message->head().rpid_ = kOtherPid;
  const CQOV_MsgPackage* const package = message.get();
  ACE_Message_Block* const block = makeBlock(std::move(message));
  put(block);
  EXPECT_TRUE(log_.waitFor("recv msg error."));
  // A later message has passed, so the leader is done with this one.
  put(makeMessage(3, 1));
  ASSERT_TRUE(handled_.waitFor(1));
  EXPECT_EQ(0, log_.count("Failed to forword message"));
  EXPECT_EQ(package, qov::packageOf(*block));
  qov::releaseWithPackage(block);
}

TEST_F(LeaderDispatchTest, RefusesARequestOfItsOwnModuleThatNobodyWaitsFor) {
  auto message = makeMessage(1, 1);
  const std::unique_ptr<CQOV_MsgPackage> kept(message.get());
  put(makeBlock(std::move(message)));
  EXPECT_TRUE(log_.waitFor("Manager thread(20) received invalid request message!"));
  put(makeMessage(3, 1));
  ASSERT_TRUE(handled_.waitFor(1));
  // The package has not been freed: it is still ours.
  EXPECT_EQ(1, kept->head().type_);
}

TEST_F(LeaderDispatchTest, CallsWithoutAMessageOnlyLog) {
  CQOV_Leader_Task leader(&module_, 0);
  leader.handleDataMsg(nullptr);
  EXPECT_EQ(1, log_.count("Invalid parameter, mb is null."));
  leader.handleRspMsg(nullptr, nullptr);
  leader.handleAsyncMsg(nullptr, nullptr);
  EXPECT_EQ(2, log_.count("Invalid Parameter, pMsgPkg or mb is null."));
  EXPECT_EQ(-1, leader.forwordMessage(nullptr, nullptr));
  EXPECT_EQ(1, log_.count("Invalid Parameter, pMsg or mb is null."));
}

TEST_F(LeaderDispatchTest, TracesEachMessageAtTheDebugLevel) {
  ACE_Log_Msg::instance()->priority_mask(
      ACE_Log_Msg::instance()->priority_mask(ACE_Log_Msg::PROCESS) | LM_DEBUG,
      ACE_Log_Msg::PROCESS);
  auto message = makeMessage(3, 99, kModule, kModule + 1);
  message->head().sn_ = 0xAB;
  put(std::move(message));
  EXPECT_TRUE(
      log_.waitFor("Module(20) recv msg: SPID=7,SMID=21,RPID=7,RMID=20,OPC=99,SN=0xab,TP=3."));
  EXPECT_TRUE(
      log_.waitFor("Worker(20) recv msg: SPID=7,SMID=21,RPID=20,RMID=20,OPC=99,SN=0xab,TP=3!\n"));
  EXPECT_TRUE(log_.waitFor("[65535][DBG][QOVPUBLIC]"));
}
