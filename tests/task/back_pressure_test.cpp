#include <ace/Log_Msg.h>
#include <ace/OS_NS_sys_time.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "task/leader_turn.h"
#include "tests/support/shifted_clock.h"
#include "tests/task/task_fixture.h"

namespace {

using qov::test::InstantWaits;

constexpr std::uint64_t kBlocking = 1;
constexpr std::uint64_t kPassing = 2;
constexpr std::uint64_t kStatic = 4;

/// Whether `waited` is a wait of `limit`, less what of it had passed before the wait began.
bool isWaitOf(const ACE_Time_Value& limit, std::chrono::nanoseconds waited) {
  const std::chrono::seconds whole(limit.sec());
  return whole / 2 < waited && waited <= whole;
}

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
    // The scheduler takes one more message and waits for a worker; from then on it takes none.
    logDebug(true);
    ASSERT_TRUE(put(kPassing));
    ASSERT_TRUE(log_.waitFor("wait worker thread is empty begin num("));
    logDebug(false);
  }

  void TearDown() override { release_.count(); }

  void logDebug(bool on) {
    ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
    const u_long mask = ace.priority_mask(ACE_Log_Msg::PROCESS);
    ace.priority_mask(on ? mask | LM_DEBUG : mask & ~u_long{LM_DEBUG}, ACE_Log_Msg::PROCESS);
  }

  bool put(std::uint64_t opc, std::uint8_t receiver = kModule) {
    ACE_Time_Value refuseAtOnce(1);
    ACE_Message_Block* const block = makeBlock(makeMessage(3, opc, receiver));
    if (module_->putq(block, &refuseAtOnce) == -1) {
      qov::releaseWithPackage(block);
      return false;
    }
    ++sent_;
    return true;
  }

  /// Until the module takes no more, also when its leader has passed on what it had in its hands: a
  /// block counts twice for the moment in which it changes hands.
  void fill(std::uint64_t opc = kPassing) {
    for (int refusals = 0; refusals < 200;) {
      refusals = put(opc) ? 0 : refusals + 1;
      std::this_thread::yield();
    }
  }

  /// Sends from the thread of `task`, with a time-out that passes at once.
  static void floodUntilRefused(CQOV_Task& task) {
    constexpr int kMoreThanThereIsRoomFor = 100000;
    const InstantWaits instant;
    // A block counts twice for the moment in which it changes hands.
    for (int refusals = 0, sent = 0; refusals < 200 && sent < kMoreThanThereIsRoomFor;) {
      ACE_Time_Value limit(0, 1000);
      errno = 0;
      if (task.send(makeMessage(3, kPassing).release(), &limit, true) == 0) {
        ++sent;
        refusals = 0;
        ASSERT_LT(sent, kMoreThanThereIsRoomFor) << "never refused";
      } else {
        ASSERT_EQ(ENOBUFS, errno);
        ++refusals;
        std::this_thread::yield();
      }
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

TEST_F(BackPressureTest, TimeoutsFireWhileAStaticTaskIsBehind) {
  FunctionStaticTask behind(module_.get(), {kStatic}, [this](CQOV_Task&, CQOV_MsgPackage&) {
    blocked_.count();
    EXPECT_TRUE(release_.waitFor());
    return 0;
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&behind));
  ASSERT_TRUE(put(kStatic));
  ASSERT_TRUE(blocked_.waitFor(2));
  fill(kStatic);
  CQOV_Task task(module_.get());
  RequestElsewhere elsewhere(*module_, task, kShort);
  EXPECT_FALSE(elsewhere.waitForResponse());
  release_.count();
  module_.reset();
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
  EXPECT_EQ(0, handled_.counted());
  release_.count();
  module_.reset();
}

TEST_F(BackPressureTest, ASenderThatMayWaitGoesOnWhenAWorkerComesBack) {
  fill();
  std::thread sender([this] {
    CQOV_Task task(module_.get());
    EXPECT_EQ(0, task.send(makeMessage(3, kPassing).release(), nullptr, true));
    answered_.count();
  });
  release_.count();
  EXPECT_TRUE(answered_.waitFor());
  sender.join();
}

TEST_F(BackPressureTest, ASenderWaitsForRoomAsLongAsItSays) {
  fill();
  CQOV_Task task(module_.get());
  ACE_Time_Value limit = kLong;
  const auto message = makeMessage(3, kPassing);
  const InstantWaits instant;
  EXPECT_EQ(-1, task.send(message.get(), &limit, false));
  EXPECT_TRUE(isWaitOf(kLong, instant.waited()));
}

TEST_F(BackPressureTest, ARequesterWaitsForRoomAsLongAsItSays) {
  // Nothing drains a module that was not started.
  constexpr std::uint8_t kNobody = kModule + 2;
  TestModule idle(ignore, 1, kModule + 1);
  ACE_Time_Value past(1);
  ACE_Message_Block* block = nullptr;
  do {
    block = makeBlock(makeMessage(3, kPassing, kNobody));
  } while (idle.putq(block, &past) != -1);
  qov::releaseWithPackage(block);
  CQOV_Task task(&idle);
  {
    const InstantWaits instant;
    EXPECT_EQ(-1, request(task, makeMessage(1, kPassing, kNobody, kModule + 1), kLong));
    EXPECT_TRUE(isWaitOf(kLong, instant.waited()));
  }
  EXPECT_EQ(1, log_.count("Worker(21) failed to send msg!"));
}

TEST_F(BackPressureTest, ATimeOfDayEndsTheWaitForRoom) {
  fill();
  ACE_Time_Value soon = ACE_OS::gettimeofday() + ACE_Time_Value(0, 50000);
  ACE_Message_Block* const block = makeBlock(makeMessage(3, kPassing));
  EXPECT_EQ(-1, module_->putq(block, &soon));
  EXPECT_EQ(EWOULDBLOCK, errno);
  qov::releaseWithPackage(block);
}

TEST_F(BackPressureTest, ASenderThatMayNotWaitIsRefused) {
  fill();
  CQOV_Task task(module_.get());
  ACE_Time_Value limit(0, 1000);
  const auto message = makeMessage(3, kPassing);
  EXPECT_EQ(-1, task.send(message.get(), &limit, false));
}

TEST_F(BackPressureTest, ASynchronousRequestOfTheModulesOwnIsRefusedToo) {
  fill();
  FunctionStaticTask asking(module_.get(), {kStatic}, [&](CQOV_Task& task, CQOV_MsgPackage&) {
    EXPECT_EQ(-1, request(task, makeMessage(1, kPassing), kShort));
    EXPECT_EQ(ENOBUFS, errno);
    answered_.count();
    return 0;
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&asking));
  ASSERT_EQ(0, asking.putMsg(3, makeBlock(makeMessage(3, kStatic)), nullptr));
  ASSERT_TRUE(answered_.waitFor());
  EXPECT_EQ(1, log_.count("Worker(20) failed to send msg!"));
  release_.count();
  module_.reset();
}

TEST_F(BackPressureTest, TheLeaderNeverWaitsForRoomInItsOwnModule) {
  // It runs the wakeup() of tasks, and only it makes room in its queue.
  constexpr int kMoreThanFitsItsQueue = 5000;
  class Sending : public CQOV_Task {
   public:
    Sending(CQOV_TaskMgr* mgr, Latch& sent) : CQOV_Task(mgr), sent_(sent) {}
    int wakeup() override {
      for (int i = 0; i < kMoreThanFitsItsQueue; ++i) {
        EXPECT_EQ(0, send(makeMessage(3, kPassing).release(), nullptr, true));
      }
      sent_.count();
      return CQOV_Task::wakeup();
    }

   private:
    Latch& sent_;
  };
  fill();
  Sending sending(module_.get(), answered_);
  RequestElsewhere elsewhere(*module_, sending, kShort);
  EXPECT_TRUE(answered_.waitFor());
  release_.count();
  EXPECT_FALSE(elsewhere.waitForResponse());
}

TEST_F(BackPressureTest, WhatAWorkerPassesOnForAnotherLeaderIsRefusedLikeAnybodysElse) {
  struct : qov::LeaderWork {
    std::size_t dispatchSome(std::size_t) override { return 0; }
    void wakeOwnThread() override {}
  } none;
  TestModule module(
      [&](CQOV_Task& task, CQOV_MsgPackage& pkg) {
        const auto send = [&task] {
          ACE_Time_Value atOnce(0);
          return task.send(makeMessage(3, kPassing, kModule + 1, kModule + 1).release(), &atOnce,
                           true);
        };
        if (pkg.head().opc_ == kBlocking) {
          for (int i = 0; i < 2500; ++i) {
            EXPECT_EQ(0, send());
          }
          qov::LeaderTurn another(none, std::make_shared<qov::Doorbell>());
          const qov::OwnTurn turn(another);
          EXPECT_EQ(-1, send());
          EXPECT_EQ(ENOBUFS, errno);
          answered_.count();
        }
        return 0;
      },
      1, kModule + 1);
  ASSERT_TRUE(module.init());
  ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, kBlocking, kModule + 1)), nullptr));
  EXPECT_TRUE(answered_.waitFor());
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

TEST_F(BackPressureTest, AWorkerThatSendsToItsOwnModuleIsNotHeldBack) {
  // Whoever waited here would wait for room that only it can make.
  TestModule module(
      [this](CQOV_Task& task, CQOV_MsgPackage& pkg) {
        if (pkg.head().opc_ == kBlocking) {
          blocked_.count();
          EXPECT_TRUE(release_.waitFor());
          EXPECT_EQ(-1, request(task, makeMessage(1, kPassing, kModule + 1, kModule + 1), kShort));
          // Taken, though nobody is left to answer it.
          EXPECT_EQ(ETIMEDOUT, errno);
          EXPECT_EQ(0, task.send(makeMessage(3, kStatic, kModule + 1, kModule + 1).release(),
                                 nullptr, true));
        }
        if (pkg.head().opc_ == kStatic) {
          answered_.count();
        }
        return 0;
      },
      1, kModule + 1);
  ASSERT_TRUE(module.init());
  const auto putTo = [&module](std::uint64_t opc) {
    ACE_Time_Value refuseAtOnce(1);
    ACE_Message_Block* const block = makeBlock(makeMessage(3, opc, kModule + 1));
    const bool taken = module.putq(block, &refuseAtOnce) != -1;
    if (!taken) {
      qov::releaseWithPackage(block);
    }
    return taken;
  };
  ASSERT_TRUE(putTo(kBlocking));
  ASSERT_TRUE(blocked_.waitFor(2));
  // For good, see fill().
  for (int refusals = 0; refusals < 200;) {
    refusals = putTo(kPassing) ? 0 : refusals + 1;
    std::this_thread::yield();
  }
  // Kept full by others while the worker sends.
  release_.count();
  while (answered_.counted() == 0) {
    putTo(kPassing);
  }
}

TEST_F(BackPressureTest, AStaticTaskThatFloodsItsOwnBlockedPoolIsRefusedAtItsTimeOut) {
  FunctionStaticTask flooding(module_.get(), {kStatic}, [this](CQOV_Task& task, CQOV_MsgPackage&) {
    floodUntilRefused(task);
    answered_.count();
    return 0;
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&flooding));
  ASSERT_TRUE(put(kStatic));
  ASSERT_TRUE(answered_.waitFor());
  release_.count();
  module_.reset();
}

TEST_F(BackPressureTest, ATaskBesideThePoolThatFloodsItIsRefusedAtItsTimeOut) {
  WorkerBeside flooding(module_.get(), [this](CQOV_Task& task, CQOV_MsgPackage&) {
    floodUntilRefused(task);
    answered_.count();
    return 0;
  });
  ASSERT_EQ(
      0, flooding.activate(THR_NEW_LWP | THR_JOINABLE, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, kModule));
  ASSERT_EQ(0, flooding.putMsg(3, makeBlock(makeMessage(3, kStatic)), nullptr));
  ASSERT_TRUE(answered_.waitFor());
  release_.count();
  module_->stop();
}

TEST_F(BackPressureTest, AStaticTaskWithoutATimeOutWaitsForItsOwnPool) {
  Latch full;
  FunctionStaticTask flooding(module_.get(), {kStatic}, [&](CQOV_Task& task, CQOV_MsgPackage&) {
    floodUntilRefused(task);
    full.count();
    EXPECT_EQ(0, task.send(makeMessage(3, kPassing).release(), nullptr, true));
    answered_.count();
    return 0;
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&flooding));
  ASSERT_TRUE(put(kStatic));
  ASSERT_TRUE(full.waitFor());
  // Long enough for somebody who does not wait.
  EXPECT_FALSE(answered_.waitFor(1, std::chrono::milliseconds(100)));
  release_.count();
  EXPECT_TRUE(answered_.waitFor());
  module_.reset();
}

TEST_F(BackPressureTest, AStaticTaskDoesNotWaitForWhatStandsInItsOwnQueue) {
  // Only it can work that off.
  Latch filled;
  FunctionStaticTask busy(module_.get(), {kStatic}, [&](CQOV_Task& task, CQOV_MsgPackage&) {
    if (blocked_.counted() == 1) {
      blocked_.count();
      EXPECT_TRUE(filled.waitFor());
      EXPECT_EQ(0, task.send(makeMessage(3, kPassing).release(), nullptr, true));
      EXPECT_EQ(0, task.send(makeMessage(3, kStatic).release(), nullptr, true));
      answered_.count();
    }
    return 0;
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&busy));
  ASSERT_TRUE(put(kStatic));
  ASSERT_TRUE(blocked_.waitFor(2));
  fill(kStatic);
  filled.count();
  EXPECT_TRUE(answered_.waitFor());
  release_.count();
  module_.reset();
}

TEST_F(BackPressureTest, AStaticTaskIsNotHeldUpByThoseWhoWaitForItsOwnQueue) {
  // Somebody waits in the line for room that only the static task can make, and it comes behind.
  Latch filled;
  FunctionStaticTask busy(module_.get(), {kStatic}, [&](CQOV_Task& task, CQOV_MsgPackage&) {
    if (blocked_.counted() == 1) {
      blocked_.count();
      EXPECT_TRUE(filled.waitFor());
      EXPECT_EQ(0, task.send(makeMessage(3, kPassing).release(), nullptr, true));
      answered_.count();
    }
    return 0;
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&busy));
  ASSERT_TRUE(put(kStatic));
  ASSERT_TRUE(blocked_.waitFor(2));
  fill(kStatic);
  std::thread stranger([this] {
    CQOV_Task task(module_.get());
    EXPECT_EQ(0, task.send(makeMessage(3, kStatic).release(), nullptr, true));
  });
  filled.count();
  EXPECT_TRUE(answered_.waitFor());
  stranger.join();
  release_.count();
  module_.reset();
}

TEST_F(BackPressureTest, AFactoryThatSendsToItsOwnModuleIsNotHeldBack) {
  // Nothing is worked off before its pool stands.
  constexpr int kMany = 5000;
  class Sending : public TestModule {
   public:
    explicit Sending(FunctionWorker::Handler handler)
        : TestModule(std::move(handler), 1, kModule + 1) {}
    CQOV_Task* createTask() override {
      CQOV_Task sender(this);
      for (int i = 0; i < kMany; ++i) {
        auto message = makeMessage(3, kPassing, kModule + 1, kModule + 1);
        EXPECT_EQ(0, sender.send(message.release(), nullptr, true));
      }
      return TestModule::createTask();
    }
  };
  Latch handled;
  Sending module([&handled](CQOV_Task&, CQOV_MsgPackage&) {
    handled.count();
    return 0;
  });
  ASSERT_TRUE(module.init());
  EXPECT_TRUE(handled.waitFor(kMany));
}

TEST_F(BackPressureTest, AStopReachesAFullModule) {
  fill();
  std::thread stopper([this] { module_.reset(); });
  EXPECT_TRUE(log_.waitFor("Manager thread(20) exit!"));
  release_.count();
  stopper.join();
}
