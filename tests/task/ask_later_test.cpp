#include <gtest/gtest.h>
#include <pthread.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_stats.h>
#include <qovpub/qov_task_scheduler.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "task/running_managers.h"
#include "tests/support/answering_modules.h"
#include "tests/support/process_end.h"
#include "tests/support/sanitizers.h"
#include "tests/task/stats_of.h"
#include "tests/task/task_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;

constexpr std::uint64_t kSilent = 99;
constexpr std::uint64_t kHeld = 98;
constexpr std::uint64_t kActing = 97;
constexpr std::uint8_t kNobody = 200;

/// What continuations were called with.
class Answers {
 public:
  struct Answer {
    QOVReason reason;
    int result;
    /// Of the answer; 0 without one.
    std::uint64_t opc;
    CQOV_Task* task;
  };

  /// One that notes its answer.
  QOVRequest::Continuation note() {
    return [this](const QOVAnswer& answer) {
      const std::lock_guard<std::mutex> lock(mutex_);
      all_.push_back(
          {answer.reason(), answer.result(), answer ? answer->head().opc_ : 0, getCurrentTask()});
      came_.count();
    };
  }

  std::vector<Answer> waitFor(int count) {
    EXPECT_TRUE(came_.waitFor(count));
    return now();
  }

  std::vector<Answer> now() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return all_;
  }

 private:
  Latch came_;
  std::mutex mutex_;
  // Guarded by mutex_.
  std::vector<Answer> all_;
};

/// The module answers with its request's operation code as the result for those below 90, 0 for
/// those above 100, or not at all.
class AskLaterTest : public TaskTest {
 protected:
  AskLaterTest() { make(2); }

  void make(unsigned int pool) {
    module_ = std::make_unique<TestModule>(
        [this](CQOV_Task& task, CQOV_MsgPackage& message) { return handle(task, message); }, pool);
    task_ = std::make_unique<CQOV_Task>(module_.get());
  }

  int handle(CQOV_Task& task, CQOV_MsgPackage& message) {
    const QOVMsgHead& head = message.head();
    began_.count();
    if (head.opc_ == kHeld) {
      EXPECT_TRUE(release_.waitFor());
    }
    if (head.opc_ == kActing) {
      act_(task);
    } else if (head.type_ == QOVMsgHead::kRequest && head.opc_ != kSilent) {
      answer(task, message, static_cast<std::uint8_t>(head.opc_ < 90 ? head.opc_ : 0));
    }
    return 0;
  }

  QOVReason ask(std::uint64_t opc, QOVRequest::Duration timeout = minutes(1),
                std::uint8_t module = kModule) {
    return QOVRequest(*task_, module, opc).askLater(timeout, answers_.note());
  }

  /// Runs `act` in a worker's handler.
  void inWorker(std::function<void(CQOV_Task&)> act) {
    act_ = std::move(act);
    ASSERT_EQ(QOVReason::kNone, QOVRequest(*task_, kModule, kActing).tell());
  }

  /// Has the only worker wait in its handler until release_.
  void holdTheWorker() {
    ASSERT_EQ(QOVReason::kNone, QOVRequest(*task_, kModule, kHeld).tell());
    ASSERT_TRUE(began_.waitFor());
  }

  /// Has a continuation wait for the only worker, which is at its second message. That one has
  /// waited for it, too; so the scheduler's thread stays where it was for the next. gate_ lets the
  /// worker go on.
  void askBehindAWait() {
    const std::atomic<unsigned long long>& waits = CQOV_TaskScheduler::oAtomicSerialNum_;
    const unsigned long long before = waits;
    const auto waitsAre = [&](unsigned long long count) {
      return qov::test::waitUntil([&] { return waits == before + count; });
    };
    make(1);
    ASSERT_TRUE(module_->init());
    inWorker([this, gate = 0](CQOV_Task&) mutable { EXPECT_TRUE(gate_.waitFor(++gate)); });
    ASSERT_TRUE(began_.waitFor());
    ASSERT_EQ(QOVReason::kNone, QOVRequest(*task_, kModule, kActing).tell());
    ASSERT_TRUE(waitsAre(1));
    gate_.count();
    ASSERT_TRUE(began_.waitFor(2));
    ASSERT_EQ(QOVReason::kNone, ask(0, minutes(1), kNobody));
    ASSERT_TRUE(waitsAre(2));
  }

  /// Has `module` take what is asked for with kSilent, and answer nothing.
  void keepRequestsTo(CQOV_TaskMgr* module) {
    keeping_.emplace(module, std::list<unsigned long long>{kSilent},
                     [this](CQOV_Task&, CQOV_MsgPackage&) {
                       kept_.count();
                       return 0;
                     });
    ASSERT_EQ(0, module->insertStaticScheduledTask(&*keeping_));
  }

  Latch kept_;
  std::optional<FunctionStaticTask> keeping_;
  Latch began_;
  Latch release_;
  Latch gate_;
  Answers answers_;
  std::function<void(CQOV_Task&)> act_;
  std::unique_ptr<TestModule> module_;
  std::unique_ptr<CQOV_Task> task_;
};

}  // namespace

TEST_F(AskLaterTest, AWorkerOfTheModuleGetsTheAnswer) {
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(QOVReason::kNone, ask(0));
  const Answers::Answer got = answers_.waitFor(1)[0];
  EXPECT_EQ(QOVReason::kNone, got.reason);
  EXPECT_EQ(0U, got.opc);
  EXPECT_NE(nullptr, dynamic_cast<FunctionWorker*>(got.task));
}

TEST_F(AskLaterTest, GivesTheAnswerToWhoTakesIt) {
  ASSERT_TRUE(module_->init());
  std::unique_ptr<CQOV_MsgPackage> mine;
  Latch came;
  ASSERT_EQ(QOVReason::kNone,
            QOVRequest(*task_, kModule, 101).askLater(minutes(1), [&](QOVAnswer answer) {
              mine = answer.take();
              came.count();
            }));
  ASSERT_TRUE(came.waitFor());
  EXPECT_EQ(101U, mine->head().opc_);
}

TEST_F(AskLaterTest, TellsTheResultWithWhichTheReceiverRefuses) {
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(QOVReason::kNone, ask(5));
  const Answers::Answer got = answers_.waitFor(1)[0];
  EXPECT_EQ(QOVReason::kRefused, got.reason);
  EXPECT_EQ(5, got.result);
}

TEST_F(AskLaterTest, TimesOutWhateverComesLater) {
  make(1);
  ASSERT_TRUE(module_->init());
  holdTheWorker();
  ASSERT_EQ(QOVReason::kNone, ask(0, milliseconds(1)));
  EXPECT_TRUE(qov::test::waitUntil([] { return statsOf(kModule).timedOut_ == 1; }));
  release_.count();
  EXPECT_EQ(QOVReason::kTimedOut, answers_.waitFor(1)[0].reason);
  EXPECT_TRUE(qov::test::waitUntil(
      [] { return statsOf(kModule).dropped(QOVDropReason::kNobodyWaits) == 1; }));
  module_->stop();
  EXPECT_EQ(1U, answers_.now().size());
}

TEST_F(AskLaterTest, AModuleThatIsNotThereIsTold) {
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(QOVReason::kNone, ask(0, minutes(1), kNobody));
  EXPECT_EQ(QOVReason::kNoReceiver, answers_.waitFor(1)[0].reason);
}

TEST_F(AskLaterTest, ARequestThatNobodyCouldAnswerIsTold) {
  ASSERT_TRUE(module_->init());
  QOVRequest request(*task_, kModule, 0);
  request.message().head().smid_ = kNobody;
  ASSERT_EQ(QOVReason::kNone, request.askLater(minutes(1), answers_.note()));
  EXPECT_EQ(QOVReason::kInvalid, answers_.waitFor(1)[0].reason);
}

TEST_F(AskLaterTest, WhatIsRefusedAtOnceDoesNotRun) {
  ASSERT_TRUE(module_->init());
  EXPECT_EQ(QOVReason::kTimedOut, ask(0, milliseconds(0)));
  EXPECT_EQ(QOVReason::kInvalid, QOVRequest(*task_, kModule, 0).askLater(minutes(1), nullptr));
  QOVRequest twice(*task_, kModule, 0);
  EXPECT_EQ(QOVReason::kNone, twice.askLater(minutes(1), answers_.note()));
  EXPECT_EQ(QOVReason::kInvalid, twice.askLater(minutes(1), answers_.note()));
  answers_.waitFor(1);
  module_->stop();
  EXPECT_EQ(QOVReason::kStopped, ask(0));
  EXPECT_EQ(1U, answers_.now().size());
}

TEST_F(AskLaterTest, AModuleHasSoManyPendingAndNoMore) {
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(QOVReason::kNone, ask(kHeld));
  for (std::size_t i = 1; i < QOVRequest::kMostLater; ++i) {
    ASSERT_EQ(QOVReason::kNone, ask(kSilent));
  }
  EXPECT_EQ(QOVReason::kNoRoom, ask(kSilent));
  EXPECT_EQ(QOVRequest::kMostLater, statsOf(kModule).askedLater_);
  release_.count();
  answers_.waitFor(1);
  EXPECT_EQ(QOVReason::kNone, ask(kSilent));
  EXPECT_EQ(QOVReason::kNoRoom, ask(kSilent));
  module_->stop();
  EXPECT_EQ(QOVRequest::kMostLater + 1, answers_.now().size());
}

TEST_F(AskLaterTest, OneWorkerAsksAHundredAtOnce) {
  make(1);
  ASSERT_TRUE(module_->init());
  constexpr int kMany = 100;
  inWorker([this](CQOV_Task& task) {
    for (int i = 0; i < kMany; ++i) {
      EXPECT_EQ(QOVReason::kNone, QOVRequest(task, kModule, 100 + static_cast<std::uint64_t>(i))
                                      .askLater(minutes(1), answers_.note()));
    }
  });
  const auto all = answers_.waitFor(kMany);
  for (int i = 0; i < kMany; ++i) {
    const Answers::Answer& got = all[static_cast<std::size_t>(i)];
    EXPECT_EQ(QOVReason::kNone, got.reason);
    EXPECT_EQ(100U + static_cast<unsigned>(i), got.opc) << "in the order of the answers";
  }
  EXPECT_EQ(0U, statsOf(kModule).askedLater_);
}

TEST_F(AskLaterTest, AContinuationMayAskAgain) {
  make(1);
  ASSERT_TRUE(module_->init());
  constexpr std::uint64_t kRounds = 50;
  Latch done;
  std::function<void(std::uint64_t)> askOnce = [&](std::uint64_t round) {
    ASSERT_EQ(QOVReason::kNone, QOVRequest(*getCurrentTask(), kModule, 100 + round)
                                    .askLater(minutes(1), [&, round](const QOVAnswer& answer) {
                                      ASSERT_TRUE(answer);
                                      if (round < kRounds) {
                                        askOnce(round + 1);
                                      } else {
                                        done.count();
                                      }
                                    }));
  };
  inWorker([&](CQOV_Task&) { askOnce(0); });
  EXPECT_TRUE(done.waitFor());
}

TEST_F(AskLaterTest, AContinuationMayWaitForAnAnswerInTheTaskThatRunsIt) {
  ASSERT_TRUE(module_->init());
  Latch done;
  inWorker([&](CQOV_Task& task) {
    ASSERT_EQ(QOVReason::kNone,
              QOVRequest(task, kModule, 0).askLater(minutes(1), [&](const QOVAnswer&) {
                EXPECT_TRUE(QOVRequest(*getCurrentTask(), kModule, 0).ask(minutes(1)));
                done.count();
              }));
  });
  EXPECT_TRUE(done.waitFor());
}

TEST_F(AskLaterTest, WhatAContinuationThrowsIsLoggedAndTheWorkerGoesOn) {
  make(1);
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(QOVReason::kNone,
            QOVRequest(*task_, kModule, 0).askLater(minutes(1), [](const QOVAnswer&) {
              throw std::runtime_error("too much");
            }));
  ASSERT_EQ(QOVReason::kNone,
            QOVRequest(*task_, kModule, 0).askLater(minutes(1), [](const QOVAnswer&) { throw 1; }));
  ASSERT_EQ(QOVReason::kNone, ask(0));
  answers_.waitFor(1);
  EXPECT_EQ(1, log_.count("Module(20) a continuation failed: too much"));
  EXPECT_EQ(1, log_.count("Module(20) a continuation failed: an unknown exception"));
}

TEST_F(AskLaterTest, AStaticTaskHasItsContinuationsRunOnThePool) {
  FunctionStaticTask asking(module_.get(), {77}, [this](CQOV_Task& task, CQOV_MsgPackage&) {
    EXPECT_EQ(QOVReason::kNone, QOVRequest(task, kModule, 0).askLater(minutes(1), answers_.note()));
    // Which synchronous requests of static tasks do not get.
    EXPECT_EQ(QOVReason::kNone, QOVRequest(task, kNobody, 0).askLater(minutes(1), answers_.note()));
    return 0;
  });
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&asking));
  ASSERT_EQ(QOVReason::kNone, QOVRequest(*task_, kModule, 77).tell());
  for (const Answers::Answer& got : answers_.waitFor(2)) {
    EXPECT_NE(nullptr, dynamic_cast<FunctionWorker*>(got.task));
  }
  module_->stop();
}

TEST_F(AskLaterTest, TheStopEndsThemOnceAndNoneIsLeftBehind) {
  ASSERT_TRUE(module_->init());
  constexpr std::size_t kMany = 50;
  for (std::size_t i = 0; i < kMany; ++i) {
    ASSERT_EQ(QOVReason::kNone, ask(kSilent));
  }
  module_->stop();
  const auto all = answers_.now();
  EXPECT_EQ(kMany, all.size());
  for (const Answers::Answer& got : all) {
    EXPECT_EQ(QOVReason::kStopped, got.reason);
  }
}

TEST_F(AskLaterTest, AStopWithoutAnIdleWorkerRunsThemOnAnotherThread) {
  make(1);
  ASSERT_TRUE(module_->init());
  holdTheWorker();
  ASSERT_EQ(QOVReason::kNone, ask(0, milliseconds(1)));
  EXPECT_TRUE(qov::test::waitUntil([] { return statsOf(kModule).timedOut_ == 1; }));
  ASSERT_EQ(QOVReason::kNone, ask(0));
  EXPECT_EQ(2U, statsOf(kModule).askedLater_);
  std::thread stopper([this] { module_->stop(); });
  auto all = answers_.waitFor(2);
  release_.count();
  stopper.join();
  ASSERT_EQ(2U, all.size());
  std::sort(all.begin(), all.end(),
            [](const auto& a, const auto& b) { return a.reason < b.reason; });
  EXPECT_EQ(QOVReason::kTimedOut, all[0].reason);
  EXPECT_EQ(QOVReason::kStopped, all[1].reason);
  EXPECT_EQ(2U, answers_.now().size());
}

TEST_F(AskLaterTest, AContinuationAtTheStopMayWaitForWhatItSendsToAnother) {
  make(0);
  ASSERT_TRUE(module_->init());
  Latch came;
  TestModule other(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        came.count();
        return 0;
      },
      1, kNobody);
  ASSERT_TRUE(other.init());
  CQOV_Task another(&other);
  bool arrived = false;
  ASSERT_EQ(QOVReason::kNone,
            QOVRequest(*task_, kModule, 0).askLater(minutes(1), [&](const QOVAnswer&) {
              EXPECT_EQ(QOVReason::kNone, QOVRequest(another, kNobody, 1).tell());
              arrived = came.waitFor();
            }));
  module_->stop();
  EXPECT_TRUE(arrived);
}

TEST_F(AskLaterTest, AContinuationAtTheStopMayEndItsThread) {
#if QOV_TEST_TSAN
  GTEST_SKIP() << "reported as a lock order inversion within ACE, see WorkerTaskTest";
#endif
  make(0);
  ASSERT_TRUE(module_->init());
  const auto held = std::make_shared<int>(0);
  // The first takes the thread of the second with it.
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(QOVReason::kNone,
              QOVRequest(*task_, kModule, kSilent).askLater(minutes(1), [held](const QOVAnswer&) {
                ::pthread_exit(nullptr);
              }));
  }
  module_->stop();
  EXPECT_EQ(2, held.use_count());
  task_.reset();
  module_.reset();
  EXPECT_EQ(1, held.use_count());
}

TEST_F(AskLaterTest, AWorkerRunsOneThatFollowsAMessageThatHadToWait) {
  askBehindAWait();
  gate_.count();
  EXPECT_NE(nullptr, dynamic_cast<FunctionWorker*>(answers_.waitFor(1)[0].task));
}

TEST_F(AskLaterTest, TheStopRunsOneThatFollowsAMessageThatHadToWait) {
  askBehindAWait();
  std::thread stopper([this] { module_->stop(); });
  CQOV_Task* const task = answers_.waitFor(1)[0].task;
  gate_.count();
  stopper.join();
  EXPECT_EQ(nullptr, dynamic_cast<FunctionWorker*>(task));
  EXPECT_EQ(1U, answers_.now().size());
}

TEST_F(AskLaterTest, AModuleWithoutWorkersRunsThemAtItsStop) {
  make(0);
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(QOVReason::kNone, ask(0, minutes(1), kNobody));
  module_->stop();
  ASSERT_EQ(1U, answers_.now().size());
  EXPECT_EQ(QOVReason::kNoReceiver, answers_.now()[0].reason);
}

TEST_F(AskLaterTest, AContinuationThatAsksAgainAtTheStopIsToldSo) {
  ASSERT_TRUE(module_->init());
  std::optional<QOVReason> later;
  std::optional<QOVReason> now;
  ASSERT_EQ(QOVReason::kNone,
            QOVRequest(*task_, kModule, kSilent).askLater(minutes(1), [&](const QOVAnswer&) {
              later = ask(0);
              now = QOVRequest(*getCurrentTask(), kModule, 0).ask().reason();
            }));
  module_->stop();
  EXPECT_EQ(QOVReason::kStopped, later);
  EXPECT_EQ(QOVReason::kStopped, now);
  EXPECT_TRUE(answers_.now().empty());
}

TEST_F(AskLaterTest, WhatAContinuationHoldsIsFreedWithIt) {
  const auto held = std::make_shared<int>(0);
  const auto hold = [held](const QOVAnswer&) {};
  ASSERT_TRUE(module_->init());
  for (const std::uint64_t opc : {std::uint64_t{0}, std::uint64_t{5}, kSilent}) {
    auto message = std::make_unique<CountedPackage>();
    ASSERT_EQ(QOVReason::kNone,
              QOVRequest(*task_, kModule, opc, std::move(message)).askLater(minutes(1), hold));
  }
  EXPECT_EQ(QOVReason::kTimedOut, QOVRequest(*task_, kModule, 0).askLater(milliseconds(0), hold));
  module_->stop();
  EXPECT_EQ(QOVReason::kStopped, QOVRequest(*task_, kModule, 0).askLater(minutes(1), hold));
  // This one, and that of the continuation which was copied.
  EXPECT_EQ(2, held.use_count());
}

TEST_F(AskLaterTest, AModuleThatNeverRanFreesThemUnrun) {
  const auto held = std::make_shared<int>(0);
  bool ran = false;
  ASSERT_EQ(QOVReason::kNone,
            QOVRequest(*task_, kModule, 0, std::make_unique<CountedPackage>())
                .askLater(minutes(1), [held, &ran](const QOVAnswer&) { ran = true; }));
  EXPECT_EQ(2, held.use_count());
  task_.reset();
  module_.reset();
  EXPECT_EQ(1, held.use_count());
  EXPECT_FALSE(ran);
}

TEST_F(AskLaterTest, CountsAsHandlingOfTheModule) {
  ASSERT_TRUE(module_->init());
  ASSERT_EQ(QOVReason::kNone, ask(0));
  answers_.waitFor(1);
  // The request and the continuation.
  EXPECT_TRUE(qov::test::waitUntil([] { return statsOf(kModule).handled_ == 2; }));
}

TEST_F(AskLaterTest, EachRunsOnceWhoeverComesFirst) {
  constexpr int kRounds = 30;
  constexpr std::size_t kAskers = 3;
  constexpr std::size_t kEach = 200;
  for (int round = 0; round < kRounds; ++round) {
    make(2);
    ASSERT_TRUE(module_->init());
    std::vector<std::atomic<int>> ran(kAskers * kEach);
    std::vector<std::atomic<int>> accepted(kAskers * kEach);
    Latch some;
    const auto askAll = [&](CQOV_Task& task, std::size_t asker) {
      std::uint32_t random = static_cast<std::uint32_t>(round) * 7919U + 1;
      for (std::size_t i = asker * kEach; i < (asker + 1) * kEach; ++i) {
        random = random * 1664525U + 1013904223U;
        const std::chrono::microseconds timeout(1 + (random >> 16) % 3000);
        const std::uint64_t opc = (random >> 8) % 2 == 0 ? 0 : kSilent;
        const QOVReason reason =
            QOVRequest(task, kModule, opc).askLater(timeout, [&, i](const QOVAnswer&) {
              ++ran[i];
            });
        accepted[i] = reason == QOVReason::kNone ? 1 : 0;
        some.count();
      }
    };
    // A worker, which does the leader's work, and other threads, which do not.
    inWorker([&](CQOV_Task& task) { askAll(task, 0); });
    std::vector<std::thread> askers;
    for (std::size_t asker = 1; asker < kAskers; ++asker) {
      askers.emplace_back([&, asker] {
        CQOV_Task task(module_.get());
        askAll(task, asker);
      });
    }
    ASSERT_TRUE(some.waitFor(round * 20));
    module_->stop();
    for (std::thread& asker : askers) {
      asker.join();
    }
    for (std::size_t i = 0; i < ran.size(); ++i) {
      ASSERT_EQ(accepted[i], ran[i]) << i << " of round " << round;
    }
    task_.reset();
  }
}

TEST_F(AskLaterTest, TheEndOfTheAskedModuleEndsThemAndNoOthers) {
  ASSERT_TRUE(module_->init());
  {
    const AnsweringModules modules(agentRoot());
    keepRequestsTo(modules.first());
    ASSERT_EQ(QOVReason::kNone, ask(kSilent));
    for (int i = 0; i < 3; ++i) {
      ASSERT_EQ(QOVReason::kNone, ask(kSilent, minutes(1), AnsweringModules::kFirst));
    }
    ASSERT_TRUE(kept_.waitFor(3));
    EXPECT_TRUE(answers_.now().empty());
  }
  agentRoot().removeModules();
  for (const Answers::Answer& got : answers_.waitFor(3)) {
    EXPECT_EQ(QOVReason::kStopped, got.reason);
  }
  EXPECT_EQ(1U, statsOf(kModule).pending_);
  EXPECT_EQ(1U, statsOf(kModule).askedLater_);
  module_->stop();
  EXPECT_EQ(4U, answers_.now().size());
}

TEST_F(AskLaterTest, TheEndOfAnotherModuleOfTheSameIdEndsNothing) {
  ASSERT_TRUE(module_->init());
  const AnsweringModules modules(agentRoot());
  keepRequestsTo(modules.first());
  ASSERT_EQ(QOVReason::kNone, ask(kSilent));
  ASSERT_EQ(QOVReason::kNone, ask(kSilent, minutes(1), AnsweringModules::kFirst));
  ASSERT_TRUE(kept_.waitFor());
  qov::RunningManagers::tellEnded(kModule);
  qov::RunningManagers::tellEnded(AnsweringModules::kFirst);
  answers_.waitFor(1);
  EXPECT_EQ(1U, statsOf(kModule).pending_);
  module_->stop();
  EXPECT_EQ(2U, answers_.now().size());
  agentRoot().removeModules();
}

TEST_F(AskLaterTest, AnswersOfAModuleThatEndsComeBeforeItsEnd) {
  constexpr int kRounds = 10;
  for (int round = 0; round < kRounds; ++round) {
    std::atomic<int> ran{0};
    int accepted = 0;
    {
      const AnsweringModules modules(agentRoot());
      CQOV_Task task(modules.second());
      for (int i = 0; i < 100; ++i) {
        const QOVReason reason = QOVRequest(task, AnsweringModules::kFirst, 1)
                                     .askLater(minutes(1), [&](const QOVAnswer&) { ++ran; });
        accepted += reason == QOVReason::kNone ? 1 : 0;
      }
      EXPECT_EQ(100, accepted);
    }
    agentRoot().removeModules();
    ASSERT_EQ(accepted, ran);
  }
}
