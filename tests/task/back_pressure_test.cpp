#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/task/task_fixture.h"

namespace {

constexpr std::uint64_t kBlocking = 1;
constexpr std::uint64_t kPassing = 2;
constexpr std::uint64_t kStatic = 4;

/// A module of one worker that is kept busy until it is released.
class BackPressureTest : public TaskTest {
 protected:
  BackPressureTest()
      : module_(std::make_unique<TestModule>(
            [this](CQOV_Task& task, CQOV_MsgPackage& pkg) {
              if (pkg.head().opc_ == kBlocking) {
                blocked_.count();
                EXPECT_TRUE(release_.waitFor());
              }
              handled_.count();
              return pkg.head().type_ == 1 ? answer(task, pkg) : 0;
            },
            1)) {}

  void SetUp() override {
    ASSERT_TRUE(module_->init());
    ASSERT_TRUE(put(kBlocking));
    ASSERT_TRUE(blocked_.waitFor());
  }

  void TearDown() override { release_.count(); }

  bool put(std::uint64_t opc) {
    ACE_Time_Value refuseAtOnce(1);
    ACE_Message_Block* const block = makeBlock(makeMessage(3, opc));
    if (module_->putq(block, &refuseAtOnce) == -1) {
      qov::releaseWithPackage(block);
      return false;
    }
    ++sent_;
    return true;
  }

  /// Until the module takes no more, and still takes no more when its leader has caught up.
  void fill() {
    for (int refusals = 0; refusals < 3;) {
      refusals = put(kPassing) ? 0 : refusals + 1;
      std::this_thread::yield();
    }
  }

  int sent_ = 0;
  Latch blocked_;
  Latch release_;
  Latch handled_;
  Latch answered_;
  std::unique_ptr<TestModule> module_;
};

}  // namespace

TEST_F(BackPressureTest, AFullModuleRefusesAndDropsNothingThatItTook) {
  fill();
  release_.count();
  EXPECT_TRUE(handled_.waitFor(sent_));
  EXPECT_EQ(sent_, handled_.counted());
}

TEST_F(BackPressureTest, TimeoutsFireWhileTheWorkersAreBehind) {
  fill();
  CQOV_Task task(module_.get());
  RequestElsewhere elsewhere(*module_, task, kShort);
  EXPECT_FALSE(elsewhere.waitForResponse());
}

TEST_F(BackPressureTest, ResponsesAreDeliveredWhileTheWorkersAreBehind) {
  FunctionStaticTask responder(module_.get(), {kStatic},
                               [this](CQOV_Task& task, CQOV_MsgPackage& pkg) {
                                 fill();
                                 return answer(task, pkg);
                               });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&responder));
  CQOV_Task task(module_.get());
  EXPECT_EQ(0, request(task, makeMessage(1, kStatic), kLong));
  EXPECT_FALSE(put(kPassing));
  release_.count();
  module_.reset();
}

TEST_F(BackPressureTest, ASenderThatMayWaitGoesOnWhenAWorkerComesBack) {
  fill();
  std::thread sender([this] {
    CQOV_Task task(module_.get());
    CQOV_MsgPackage* response = nullptr;
    EXPECT_EQ(0, task.send(makeMessage(1, kPassing).release(), response, nullptr, true));
    delete response;
  });
  release_.count();
  sender.join();
}

TEST_F(BackPressureTest, ASenderThatMayNotWaitIsRefused) {
  fill();
  CQOV_Task task(module_.get());
  EXPECT_EQ(-1, request(task, makeMessage(1, kPassing), ACE_Time_Value(0, 1000)));
  EXPECT_EQ(1, log_.count("Worker(20) failed to send msg!"));
}

TEST_F(BackPressureTest, TheOnlyWorkerCanAnswerIntoAModuleThatIsKeptFull) {
  // Its answer must not wait for room that only this worker can make.
  std::thread sender([this] {
    CQOV_Task task(module_.get());
    CQOV_MsgPackage* response = nullptr;
    EXPECT_EQ(0, task.send(makeMessage(1, kPassing).release(), response, nullptr, true));
    delete response;
    answered_.count();
  });
  fill();
  release_.count();
  while (answered_.counted() == 0) {
    put(kPassing);
  }
  sender.join();
}

TEST_F(BackPressureTest, AStopReachesAFullModule) {
  fill();
  std::thread stopper([this] { module_.reset(); });
  EXPECT_TRUE(log_.waitFor("Manager thread(20) exit!"));
  release_.count();
  stopper.join();
}
