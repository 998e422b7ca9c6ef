#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/task/task_fixture.h"

namespace {

constexpr std::uint64_t kEndless = 100;

/// So many messages take far longer than kShort, however fast the machine is.
constexpr long kTooMany = 5000000;

/// Puts each message that the leader hands to it straight back into the leader's queue, which thus
/// never runs empty.
class Juggler : public FunctionStaticTask {
 public:
  explicit Juggler(CQOV_TaskMgr* mgr) : FunctionStaticTask(mgr, {kEndless}, ignore) {}

  int putMsg(int, ACE_Message_Block* mb, ACE_Time_Value*) override {
    std::this_thread::yield();
    if (++thrown_ == 1) {
      begun_.count();
    }
    if (thrown_ == kTooMany || enough_ || taskMgr()->putq(mb, nullptr) == -1) {
      qov::releaseWithPackage(mb);
      done_.count();
    }
    return 0;
  }

  /// Waits for the first message.
  bool begun() { return begun_.waitFor(); }
  long thrown() const { return thrown_; }

  /// Ends it, and waits for that.
  void stop() {
    enough_ = true;
    EXPECT_TRUE(done_.waitFor());
  }

 private:
  std::atomic<long> thrown_{0};
  std::atomic<bool> enough_{false};
  Latch begun_;
  Latch done_;
};

class LeaderFairnessTest : public TaskTest {
 protected:
  LeaderFairnessTest()
      : module_(std::make_unique<TestModule>(
            [](CQOV_Task& task, CQOV_MsgPackage& request) { return answer(task, request); })),
        juggler_(module_.get()) {}
  ~LeaderFairnessTest() override { module_.reset(); }

  void SetUp() override {
    ASSERT_TRUE(module_->init());
    ASSERT_EQ(0, module_->insertStaticScheduledTask(&juggler_));
  }

  void juggle() {
    ASSERT_LT(0, module_->putq(makeBlock(makeMessage(3, kEndless)), nullptr));
    ASSERT_TRUE(juggler_.begun());
  }

  std::unique_ptr<TestModule> module_;
  Juggler juggler_;
};

}  // namespace

TEST_F(LeaderFairnessTest, ATimeoutFiresWhileMessagesNeverEnd) {
  juggle();
  CQOV_Task task(module_.get());
  RequestElsewhere elsewhere(*module_, task, kShort);
  EXPECT_FALSE(elsewhere.waitForResponse());
  EXPECT_GT(kTooMany, juggler_.thrown());
  juggler_.stop();
}

TEST_F(LeaderFairnessTest, AStopEndsTheModuleWhileMessagesNeverEnd) {
  juggle();
  module_.reset();
  EXPECT_GT(kTooMany, juggler_.thrown());
}

TEST_F(LeaderFairnessTest, ARequestIsAnsweredWhileMessagesNeverEnd) {
  juggle();
  CQOV_Task task(module_.get());
  EXPECT_EQ(0, request(task, makeMessage(1, 1), kLong));
  EXPECT_GT(kTooMany, juggler_.thrown());
  juggler_.stop();
}
