#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "task/leader_turn.h"
#include "task/running_managers.h"
#include "tests/platform/guard_threads.h"
#include "tests/support/sleeping_thread.h"
#include "tests/task/acting_task.h"

// What comes while a sender, or the leader's own thread, is at the leader's work.

namespace {

constexpr std::uint64_t kActing = 78;
constexpr std::uint64_t kAnswered = 1;

class LeaderAtWorkTest : public TaskTest {
 protected:
  LeaderAtWorkTest()
      : module_(std::make_unique<TestModule>([](CQOV_Task& task, CQOV_MsgPackage& message) {
          return message.head().type_ == 1 ? answer(task, message) : 0;
        })),
        requester_(module_.get()) {}
  ~LeaderAtWorkTest() override { module_.reset(); }

  void SetUp() override { ASSERT_TRUE(module_->init()); }

  void act(std::function<void()> what) {
    acting_.emplace(module_.get(), kActing, std::move(what));
    ASSERT_EQ(0, module_->insertStaticScheduledTask(&*acting_));
  }

  void put(ACE_Message_Block* block) { ASSERT_LT(0, module_->putq(block, nullptr)); }

  /// Lets a message for the acting task come right behind a request to another process, so that one
  /// batch takes both.
  void putRequestAndAct(ACE_Time_Value timeout) {
    elsewhere_.emplace(*module_, requester_, timeout);
    put(makeBlock(makeMessage(3, kActing)));
  }

  void respondAndLetPass(std::chrono::milliseconds timeout) {
    // From a thread that does nobody's work.
    std::thread([this] { put(makeBlock(elsewhere_->makeResponse())); }).join();
    const auto passed = std::chrono::steady_clock::now() + 2 * timeout;
    while (std::chrono::steady_clock::now() < passed) {
      std::this_thread::yield();
    }
  }

  std::unique_ptr<TestModule> module_;
  CQOV_Task requester_;
  std::optional<RequestElsewhere> elsewhere_;
  std::optional<ActingTask> acting_;
};

}  // namespace

TEST_F(LeaderAtWorkTest, AResponseThatComesInTimeIsNotTooLateForALeaderThatIsBusyUntilThen) {
  constexpr std::chrono::milliseconds kTimeout{20};
  Latch begun;
  act([&] {
    if (elsewhere_) {
      respondAndLetPass(kTimeout);
    } else {
      putRequestAndAct(ACE_Time_Value(kTimeout));
      begun.count();
    }
  });
  put(makeBlock(makeMessage(3, kActing)));
  ASSERT_TRUE(begun.waitFor());
  EXPECT_TRUE(elsewhere_->waitForResponse());
  module_->stop();
}

TEST_F(LeaderAtWorkTest, GetsOnWithEachMessageOfABatch) {
  constexpr int kMessages = 3;
  std::vector<unsigned int> steps;
  Latch done;
  act([&] {
    if (steps.empty()) {
      // The others are one batch, behind this one.
      for (int i = 1; i < kMessages; ++i) {
        put(makeBlock(makeMessage(3, kActing)));
      }
    }
    const qov::LeaderLook look = qov::RunningManagers::leaders().at(0);
    EXPECT_TRUE(look.progress.hasWork);
    steps.push_back(look.progress.steps);
    if (steps.size() == kMessages) {
      done.count();
    }
  });
  put(makeBlock(makeMessage(3, kActing)));
  ASSERT_TRUE(done.waitFor());
  module_->stop();
  EXPECT_EQ(kMessages, std::set<unsigned int>(steps.begin(), steps.end()).size());
}

TEST_F(LeaderAtWorkTest, AResponseThatComesInTimeIsNotTooLateWhileASenderIsAtWork) {
  constexpr std::chrono::milliseconds kTimeout{20};
  act([&] { respondAndLetPass(kTimeout); });
  {
    const qov::LeadingScope scope(true);
    putRequestAndAct(ACE_Time_Value(kTimeout));
  }
  EXPECT_TRUE(elsewhere_->waitForResponse());
  module_->stop();
}

TEST_F(LeaderAtWorkTest, AHangUpAheadOfASendersMessageIsTheLeadersOwn) {
  act([] {});
  {
    const qov::LeadingScope scope(true);
    elsewhere_.emplace(*module_, requester_, kNoLimit);
    put(new ACE_Message_Block(0, ACE_Message_Block::MB_HANGUP));
    put(makeBlock(makeMessage(3, kActing)));
  }
  EXPECT_FALSE(elsewhere_->waitForResponse());
  EXPECT_EQ(0, request(requester_, makeMessage(1, kAnswered), kLong));
  EXPECT_EQ(1, log_.count("Manager thread(20) received hangup-message!"));
  module_->stop();
}

TEST_F(LeaderAtWorkTest, AStopWaitsForASenderThatIsAtWork) {
  Latch atWork;
  Latch release;
  act([&] {
    atWork.count();
    EXPECT_TRUE(release.waitFor());
  });
  std::thread sender([this] {
    if (request(requester_, makeMessage(1, kActing), kNoLimit) != 0) {
      EXPECT_EQ(ECONNABORTED, errno);
    }
  });
  ASSERT_TRUE(atWork.waitFor());
  Latch stopped;
  std::thread stopper([&] {
    module_->stop();
    stopped.count();
  });
  // Long enough for a stop that does not wait.
  EXPECT_FALSE(stopped.waitFor(1, std::chrono::milliseconds(100)));
  release.count();
  stopper.join();
  sender.join();
}

TEST_F(LeaderAtWorkTest, ALaterTimerLetsTheLeadersThreadSleep) {
  constexpr int kRequests = 50;
  constexpr int kTries = 100;
  const std::filesystem::path leader = qov::test::threadsNamed("m20-leader").front();
  const auto ask = [this](const ACE_Time_Value& timeout) {
    EXPECT_EQ(0, request(requester_, makeMessage(1, kAnswered), timeout));
  };
  ask(kLong);
  // Whoever leaves the leader's thread something wakes it, too. A timer would each time.
  int tries = 0;
  for (long waits = -1; waits != qov::test::waitsOf(leader) && tries < kTries; ++tries) {
    qov::test::waitForThread([&] { return qov::test::sleeps(leader); }, "sleeps");
    waits = qov::test::waitsOf(leader);
    for (int i = 0; i < kRequests; ++i) {
      ask(kLong + kLong);
    }
  }
  EXPECT_LT(tries, kTries);
}
