#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "tests/task/task_fixture.h"

namespace {

constexpr std::uint64_t kAnswered = 1;
constexpr std::uint64_t kUnanswered = 2;

class LeaderRequestsTest : public TaskTest {
 protected:
  LeaderRequestsTest()
      : module_([this](CQOV_Task& task, CQOV_MsgPackage& pkg) {
          if (pkg.head().opc_ == kAnswered) {
            return answer(task, pkg);
          }
          unanswered_ = CreateQovRspPackage(pkg);
          handled_.count();
          return 0;
        }),
        requester_(&module_) {}

  void SetUp() override { ASSERT_TRUE(module_.init()); }

  void hangUp() { module_.putq(new ACE_Message_Block(0, ACE_Message_Block::MB_HANGUP), nullptr); }

  /// What the worker could have answered.
  std::unique_ptr<CQOV_MsgPackage> unanswered_;
  Latch handled_;
  TestModule module_;
  CQOV_Task requester_;
};

}  // namespace

TEST_F(LeaderRequestsTest, AResponseReachesItsRequester) {
  std::unique_ptr<CQOV_MsgPackage> response;
  auto message = makeMessage(1, kAnswered);
  const std::uint32_t sn = message->head().sn_;
  EXPECT_EQ(0, request(requester_, std::move(message), kLong, &response));
  ASSERT_NE(nullptr, response);
  EXPECT_EQ(2, response->head().type_);
  EXPECT_EQ(sn, response->head().sn_);
}

TEST_F(LeaderRequestsTest, ARequestThatNobodyAnswersTimesOut) {
  EXPECT_EQ(-1, request(requester_, makeMessage(1, kUnanswered), kShort));
  EXPECT_EQ(1, log_.count("Worker(20) failed to get msg!"));
}

TEST_F(LeaderRequestsTest, DropsAResponseThatArrivesAfterItsTimeout) {
  auto message = makeMessage(1, kUnanswered);
  const std::string sn = std::to_string(message->head().sn_);
  ASSERT_EQ(-1, request(requester_, std::move(message), kShort));
  ASSERT_TRUE(handled_.waitFor());
  ASSERT_EQ(0, requester_.send(unanswered_.release(), nullptr, true));
  EXPECT_TRUE(log_.waitFor("Failed to handle RSP message: SPID=7,SMID=20,OPC=2,SN=" + sn + "!\n"));
}

TEST_F(LeaderRequestsTest, FreesAResponseThatItsRequesterDoesNotTake) {
  CQOV_Task gone(&module_);
  RequestElsewhere elsewhere(module_, gone, kLong);
  ASSERT_TRUE(log_.waitFor("recv msg error."));
  gone.msg_queue()->deactivate();
  ASSERT_LT(0, module_.putq(makeBlock(elsewhere.makeResponse()), nullptr));
  // The wait is over, so the same one again is nobody's.
  ASSERT_LT(0, module_.putq(makeBlock(elsewhere.makeResponse()), nullptr));
  EXPECT_TRUE(log_.waitFor("Failed to handle RSP message: SPID=8,SMID=20,OPC=1,SN="));
  EXPECT_EQ(1, log_.count("Failed to handle RSP message"));
}

TEST_F(LeaderRequestsTest, ALateResponseIsNotTakenForThatOfTheNextRequest) {
  ASSERT_EQ(-1, request(requester_, makeMessage(1, kUnanswered), kShort));
  ASSERT_TRUE(handled_.waitFor());
  ASSERT_EQ(0, requester_.send(unanswered_.release(), nullptr, true));
  std::unique_ptr<CQOV_MsgPackage> response;
  ASSERT_EQ(0, request(requester_, makeMessage(1, kAnswered), kLong, &response));
  EXPECT_EQ(kAnswered, response->head().opc_);
}

TEST_F(LeaderRequestsTest, AResponseToASendThatWasEndedIsNotTakenForThatOfTheNext) {
  std::thread sender(
      [this] { EXPECT_EQ(-1, request(requester_, makeMessage(1, kUnanswered), kNoLimit)); });
  ASSERT_TRUE(handled_.waitFor());
  requester_.wakeup();
  sender.join();
  CQOV_Task responder(&module_);
  ASSERT_EQ(0, responder.send(unanswered_.release(), nullptr, true));
  std::unique_ptr<CQOV_MsgPackage> response;
  ASSERT_EQ(0, request(requester_, makeMessage(1, kAnswered), kLong, &response));
  EXPECT_EQ(kAnswered, response->head().opc_);
}

TEST_F(LeaderRequestsTest, ATimeoutOfZeroWaitsUntilTheResponse) {
  std::thread sender([this] {
    std::unique_ptr<CQOV_MsgPackage> response;
    EXPECT_EQ(0, request(requester_, makeMessage(1, kUnanswered), kNoLimit, &response));
    EXPECT_NE(nullptr, response);
  });
  ASSERT_TRUE(handled_.waitFor());
  CQOV_Task responder(&module_);
  EXPECT_EQ(0, responder.send(unanswered_.release(), nullptr, true));
  sender.join();
}

TEST_F(LeaderRequestsTest, TheSecondOfTwoEqualRequestsIsWokenAtOnce) {
  auto first = makeMessage(1, kUnanswered);
  auto second = makeMessage(1, kUnanswered);
  second->head() = first->head();
  std::thread sender([&] { EXPECT_EQ(0, request(requester_, std::move(first), kLong)); });
  ASSERT_TRUE(handled_.waitFor());
  CQOV_Task other(&module_);
  EXPECT_EQ(-1, request(other, std::move(second), kLong));
  EXPECT_TRUE(
      log_.waitFor("Failed to bind REQ message! SPID=7,SMID=20,RPID=7,RMID=20,OPC=2,SN=0x"));
  // The first one still gets its response.
  EXPECT_EQ(0, other.send(unanswered_.release(), nullptr, true));
  sender.join();
}

TEST_F(LeaderRequestsTest, ARequestToAModuleThatDoesNotExistFailsAtOnce) {
  EXPECT_EQ(-1, request(requester_, makeMessage(1, kAnswered, kModule + 1), kNoLimit));
  EXPECT_EQ(1, log_.count("Worker(20) failed to get msg!"));
  EXPECT_EQ(1, log_.count("Pid 21 is invalid!"));
}

TEST_F(LeaderRequestsTest, AFailedRequestOfAStaticTaskEndsTheWaitInItsQueueOnly) {
  class Counting : public FunctionStaticTask {
   public:
    using FunctionStaticTask::FunctionStaticTask;
    int wakeup() override {
      ++wakeUps_;
      return FunctionStaticTask::wakeup();
    }
    int wakeUps_ = 0;
  };
  Counting task(&module_, {}, ignore);
  // The test plays the leader's thread.
  CQOV_Leader_Task leader(&module_, 0);
  ACE_Message_Block* const block = makeBlock(makeMessage(1, kAnswered, kModule + 1));
  ASSERT_TRUE(qov::chainTimeoutDesc(*block, new TimeoutDesc{&task, kLong, -1}));
  leader.handleDataMsg(block);
  EXPECT_EQ(0, task.wakeUps_);
  ACE_Message_Block* none = nullptr;
  ACE_Time_Value past;
  EXPECT_EQ(-1, task.msg_queue()->dequeue_head(none, &past));
  EXPECT_EQ(ESHUTDOWN, errno);
}

TEST_F(LeaderRequestsTest, AFailedRequestLeavesNothingPending) {
  auto first = makeMessage(1, kAnswered, kModule + 1);
  auto second = makeMessage(1, kAnswered, kModule + 1);
  second->head() = first->head();
  EXPECT_EQ(-1, request(requester_, std::move(first), kLong));
  EXPECT_EQ(-1, request(requester_, std::move(second), kLong));
  EXPECT_EQ(0, log_.count("Failed to bind REQ message!"));
}

TEST_F(LeaderRequestsTest, AHangUpReleasesTheSendersThatWaitForAnotherProcess) {
  RequestElsewhere elsewhere(module_, requester_, kNoLimit);
  ASSERT_TRUE(log_.waitFor("recv msg error."));
  hangUp();
  EXPECT_FALSE(elsewhere.waitForResponse());
  EXPECT_EQ(1, log_.count("Manager thread(20) received hangup-message!"));
}

TEST_F(LeaderRequestsTest, ARequestToAnotherProcessTimesOut) {
  RequestElsewhere elsewhere(module_, requester_, kShort);
  EXPECT_FALSE(elsewhere.waitForResponse());
  EXPECT_EQ(1, log_.count("recv msg error."));
}

TEST_F(LeaderRequestsTest, AHangUpLeavesRequestsWithinTheProcessPending) {
  std::thread sender(
      [this] { EXPECT_EQ(0, request(requester_, makeMessage(1, kUnanswered), kNoLimit)); });
  ASSERT_TRUE(handled_.waitFor());
  hangUp();
  ASSERT_TRUE(log_.waitFor("Manager thread(20) received hangup-message!"));
  CQOV_Task responder(&module_);
  EXPECT_EQ(0, responder.send(unanswered_.release(), nullptr, true));
  sender.join();
}

TEST_F(LeaderRequestsTest, AHangUpCancelsTheTimersOfWhatItReleases) {
  RequestElsewhere elsewhere(module_, requester_, ACE_Time_Value(0, 300000));
  ASSERT_TRUE(log_.waitFor("recv msg error."));
  hangUp();
  EXPECT_FALSE(elsewhere.waitForResponse());
  // A timer left behind would fire before this one and reach into freed memory.
  EXPECT_EQ(-1, request(requester_, makeMessage(1, kUnanswered), ACE_Time_Value(0, 500000)));
}

TEST_F(LeaderRequestsTest, ManyTimeoutsAndResponsesFromManyThreads) {
  constexpr int kThreads = 6;
  constexpr int kEach = 60;
  std::atomic<int> answered{0};
  std::atomic<int> timedOut{0};
  TestModule module(
      [](CQOV_Task& task, CQOV_MsgPackage& pkg) {
        return pkg.head().opc_ == kAnswered ? answer(task, pkg) : 0;
      },
      3, kModule + 1);
  ASSERT_TRUE(module.init());
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      CQOV_Task task(&module);
      for (int i = 0; i < kEach; ++i) {
        const std::uint64_t opc = i % 10 == 0 ? kUnanswered : kAnswered;
        const ACE_Time_Value limit = opc == kAnswered ? kLong : ACE_Time_Value(0, 5000);
        const int result = request(task, makeMessage(1, opc, kModule + 1, kModule + 1), limit);
        (result == 0 ? answered : timedOut) += 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(kThreads * kEach / 10, timedOut);
  EXPECT_EQ(kThreads * kEach - timedOut, answered);
}
