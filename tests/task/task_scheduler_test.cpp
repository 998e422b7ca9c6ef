#include <qovpub/qov_task_scheduler.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/shifted_clock.h"
#include "tests/task/stats_of.h"
#include "tests/task/task_fixture.h"

namespace {

using TaskSchedulerTest = TaskTest;

/// A module whose factory fails at a given call.
class FailingModule : public TestModule {
 public:
  FailingModule(FunctionWorker::Handler handler, unsigned int pool, int failAt)
      : TestModule(std::move(handler), pool), failAt_(failAt) {}
  CQOV_Task* createTask() override {
    return ++calls_ == failAt_ ? nullptr : TestModule::createTask();
  }
  int calls_ = 0;

 private:
  const int failAt_;
};

void send(CQOV_TaskMgr& module, int type = 3) {
  ASSERT_LT(0, module.putq(makeBlock(makeMessage(type, 1)), nullptr));
}

}  // namespace

TEST_F(TaskSchedulerTest, CreatesThePoolBeforeInitReturns) {
  TestModule module(ignore, 5);
  const int before = FunctionWorker::alive();
  ASSERT_TRUE(module.init());
  EXPECT_EQ(before + 5, FunctionWorker::alive());
  EXPECT_EQ(1, log_.count("Module(20) thread inited, threads size is 5!"));
}

TEST_F(TaskSchedulerTest, AFactoryThatFailsOnTheThirdCallLeavesAPoolOfTwo) {
  const int before = FunctionWorker::alive();
  FailingModule module(ignore, 8, 3);
  ASSERT_TRUE(module.init());
  EXPECT_EQ(3, module.calls_);
  EXPECT_EQ(before + 2, FunctionWorker::alive());
  EXPECT_EQ(1, log_.count("Failed to create task in module 20!"));
  EXPECT_EQ(1, log_.count("Module(20) thread inited, threads size is 8!"));
}

TEST_F(TaskSchedulerTest, ReusesWorkersInTheOrderInWhichTheyReturned) {
  // Never started: the test plays the scheduler thread.
  TestModule module(ignore, 0);
  CQOV_TaskScheduler scheduler(&module, 0);
  auto* const first = new FunctionWorker(&module, ignore);
  auto* const second = new FunctionWorker(&module, ignore);
  auto* const third = new FunctionWorker(&module, ignore);
  for (CQOV_Task* const worker : {third, first, second}) {
    ASSERT_EQ(0, scheduler.return_to_work(worker));
  }
  for (CQOV_Task* const worker : {third, first, second}) {
    ACE_Message_Block* const block = makeBlock(makeMessage(3, 1));
    ASSERT_EQ(0, scheduler.handle_mb_data(block));
    ACE_Message_Block* taken = nullptr;
    ASSERT_EQ(0, worker->msg_queue()->dequeue_head(taken));
    EXPECT_EQ(block, taken);
    qov::releaseWithPackage(taken);
  }
}

TEST_F(TaskSchedulerTest, EachWorkerOfThePoolTakesItsTurn) {
  std::mutex mutex;
  std::vector<const CQOV_Task*> order;
  Latch handled;
  TestModule module(
      [&](CQOV_Task& task, CQOV_MsgPackage&) {
        const std::lock_guard<std::mutex> lock(mutex);
        order.push_back(&task);
        handled.count();
        return 0;
      },
      3);
  ASSERT_TRUE(module.init());
  for (int i = 1; i <= 6; ++i) {
    send(module);
    ASSERT_TRUE(handled.waitFor(i));
  }
  // A worker goes behind those that are idle, so the first three are all different.
  const std::lock_guard<std::mutex> lock(mutex);
  EXPECT_NE(order[0], order[1]);
  EXPECT_NE(order[1], order[2]);
  EXPECT_NE(order[0], order[2]);
}

TEST_F(TaskSchedulerTest, AWorkerHasOnePlaceInTheIdleList) {
  TestModule module(ignore, 0);
  CQOV_TaskScheduler scheduler(&module, 0);
  auto* const first = new FunctionWorker(&module, ignore);
  auto* const second = new FunctionWorker(&module, ignore);
  for (CQOV_Task* const worker : {first, first, second}) {
    ASSERT_EQ(0, scheduler.return_to_work(worker));
  }
  ASSERT_EQ(0, scheduler.handle_mb_data(makeBlock(makeMessage(3, 1))));
  ASSERT_EQ(0, scheduler.handle_mb_data(makeBlock(makeMessage(3, 2))));
  EXPECT_EQ(1U, first->msg_queue()->message_count());
  EXPECT_EQ(1U, second->msg_queue()->message_count());
}

TEST_F(TaskSchedulerTest, ATaskThatStaysBesideThePoolIsNotTakenForAWorker) {
  Latch beside;
  Latch inPool;
  TestModule module(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        inPool.count();
        return 0;
      },
      1);
  ASSERT_TRUE(module.init());
  {
    WorkerBeside own(&module, [&](CQOV_Task&, CQOV_MsgPackage&) {
      beside.count();
      return 0;
    });
    ASSERT_EQ(0, own.activate());
    own.putMsg(3, makeBlock(makeMessage(3, 1)), nullptr);
    ASSERT_TRUE(beside.waitFor());
    own.notifyExit();
    ASSERT_EQ(0, own.wait());
  }
  send(module);
  send(module);
  EXPECT_TRUE(inPool.waitFor(2));
  EXPECT_EQ(1, beside.counted());
}

TEST_F(TaskSchedulerTest, AFactoryThatThrowsIsOneThatFails) {
  class Throwing : public TestModule {
   public:
    Throwing() : TestModule(ignore, 3) {}
    CQOV_Task* createTask() override {
      if (++calls_ == 2) {
        throw std::runtime_error("no worker");
      }
      return TestModule::createTask();
    }
    int calls_ = 0;
  };
  const int before = FunctionWorker::alive();
  Throwing module;
  ASSERT_TRUE(module.init());
  EXPECT_EQ(before + 1, FunctionWorker::alive());
  EXPECT_EQ(1, log_.count("Failed to create task in module 20!"));
}

TEST_F(TaskSchedulerTest, WaitsForAnIdleWorkerAndDropsNothing) {
  PatientModule module;
  ASSERT_TRUE(module.init());
  constexpr int kMessages = 50;
  for (int i = 0; i < kMessages; ++i) {
    send(module);
  }
  EXPECT_EQ(0, module.handled_.counted());
  module.release_.count();
  EXPECT_TRUE(module.handled_.waitFor(kMessages));
}

TEST_F(TaskSchedulerTest, NotesTheFirstWaitForAnIdleWorker) {
  CQOV_TaskScheduler::oAtomicSerialNum_ = 0;
  PatientModule module;
  ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
  ace.priority_mask(ace.priority_mask(ACE_Log_Msg::PROCESS) | LM_DEBUG, ACE_Log_Msg::PROCESS);
  ASSERT_TRUE(module.init());
  send(module);
  send(module);
  ASSERT_TRUE(log_.waitFor("wait worker thread is empty begin num(0), time("));
  module.release_.count();
  ASSERT_TRUE(module.handled_.waitFor(2));
  EXPECT_TRUE(log_.waitFor("wait worker thread is empty end wait num(0), time("));
  EXPECT_TRUE(log_.waitFor("[INFO][QOVPUBLIC][endWait"));
}

TEST_F(TaskSchedulerTest, EveryFiveHundredthWaitIsNoted) {
  Latch handled;
  TestModule module(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        handled.count();
        return 0;
      },
      1);
  ASSERT_TRUE(module.init());
  CQOV_TaskScheduler::oAtomicSerialNum_ = 1;
  int sent = 0;
  while (CQOV_TaskScheduler::oAtomicSerialNum_ <= 500) {
    send(module);
    send(module);
    sent += 2;
    ASSERT_TRUE(handled.waitFor(sent));
  }
  EXPECT_EQ(1, log_.count("wait worker thread is empty end wait num(500), time("));
  EXPECT_EQ(0, log_.count("wait worker thread is empty end wait num(499)"));
}

TEST_F(TaskSchedulerTest, APoolOfNoWorkersBlocksTheSchedulerUntilTheStop) {
  CQOV_TaskScheduler::oAtomicSerialNum_ = 0;
  {
    TestModule module(ignore, 0);
    ASSERT_TRUE(module.init());
    ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
    ace.priority_mask(ace.priority_mask(ACE_Log_Msg::PROCESS) | LM_DEBUG, ACE_Log_Msg::PROCESS);
    send(module);
    send(module);
    ASSERT_TRUE(log_.waitFor("wait worker thread is empty begin num(0), time("));
    EXPECT_EQ(0, log_.count("end wait num"));
  }
  EXPECT_EQ(1, log_.count("[INFO][QOVPUBLIC][endWait"));
  EXPECT_EQ(1, log_.count("Scheduler thread(20) received stop-message!"));
}

TEST_F(TaskSchedulerTest, ReturningNullToWorkIsRefused) {
  TestModule module(ignore);
  EXPECT_EQ(-1, module.idle(nullptr));
  EXPECT_EQ(1, log_.count("Null pointer of pWorkerTask!"));
}

TEST_F(TaskSchedulerTest, PassesOverAWorkerThatWasToldToEndOnItsOwn) {
  std::vector<CQOV_Task*> workers;
  class Noting : public TestModule {
   public:
    Noting(FunctionWorker::Handler handler, std::vector<CQOV_Task*>& workers)
        : TestModule(std::move(handler), 2), workers_(workers) {}
    CQOV_Task* createTask() override {
      workers_.push_back(TestModule::createTask());
      return workers_.back();
    }
    std::vector<CQOV_Task*>& workers_;
  };
  Latch handled;
  Noting module(
      [&](CQOV_Task& task, CQOV_MsgPackage&) {
        EXPECT_EQ(workers[1], &task);
        handled.count();
        return 0;
      },
      workers);
  ASSERT_TRUE(module.init());
  workers[0]->notifyExit();
  ASSERT_TRUE(log_.waitFor("Task(20) will exit!"));
  send(module);
  send(module);
  EXPECT_TRUE(handled.waitFor(2));
}

TEST_F(TaskSchedulerTest, KeepsTheOrderOfMessagesWhetherTheyWaitOrNot) {
  constexpr std::uint64_t kMessages = 2000;
  std::vector<std::uint64_t> order;
  Latch handled;
  TestModule module(
      [&](CQOV_Task&, CQOV_MsgPackage& pkg) {
        order.push_back(pkg.head().opc_);
        handled.count();
        return 0;
      },
      1);
  ASSERT_TRUE(module.init());
  for (std::uint64_t opc = 1; opc <= kMessages; ++opc) {
    ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, opc)), nullptr));
    // Now and then the pool comes to rest, or nearly so.
    if (opc % 7 == 0) {
      ASSERT_TRUE(handled.waitFor(static_cast<int>(opc - opc % 3)));
    }
  }
  ASSERT_TRUE(handled.waitFor(kMessages));
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

namespace {

/// How often the thread of this name has gone to sleep.
long timesAsleep(const std::string& name) {
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(thread.path() / "status");
    std::string field;
    status >> field >> field;
    if (field != name) {
      continue;
    }
    while (status >> field && field != "voluntary_ctxt_switches:") {
    }
    long times = 0;
    status >> times;
    return times;
  }
  ADD_FAILURE() << "no thread " << name;
  return 0;
}

/// A scheduler with a worker that is idle and whose thread never runs.
class SchedulerWithAWorker : public TaskSchedulerTest {
 protected:
  SchedulerWithAWorker() { EXPECT_EQ(0, scheduler_.return_to_work(worker_)); }

  /// Whether a message gets to the worker without the scheduler thread.
  bool hands() {
    const std::size_t before = worker_->msg_queue()->message_count();
    EXPECT_TRUE(scheduler_.take(3, makeBlock(makeMessage(3, 1))));
    return worker_->msg_queue()->message_count() > before;
  }

  TestModule module_{ignore, 0};
  CQOV_TaskScheduler scheduler_{&module_, 0};
  FunctionWorker* const worker_ = new FunctionWorker(&module_, ignore);
};

}  // namespace

TEST_F(SchedulerWithAWorker, HandsAMessageToItWithoutItsThread) {
  ASSERT_EQ(0, scheduler_.activate());
  for (std::size_t given = 1; !hands(); ++given) {
    // Its thread does not wait yet, and gives the message away when it does.
    while (worker_->msg_queue()->message_count() < given) {
      std::this_thread::yield();
    }
    ASSERT_EQ(0, scheduler_.return_to_work(worker_));
  }
  // Nobody is idle.
  EXPECT_FALSE(hands());
  scheduler_.notifyExit();
  EXPECT_EQ(0, scheduler_.wait());
}

TEST_F(SchedulerWithAWorker, LeavesAMessageToItsThreadWhileThatIsElsewhere) {
  EXPECT_FALSE(hands());
  EXPECT_TRUE(worker_->msg_queue()->is_empty());
}

TEST_F(SchedulerWithAWorker, HandsNothingPastWhatStandsInItsQueue) {
  ASSERT_EQ(0, scheduler_.putMsg(3, makeBlock(makeMessage(3, 1)), nullptr));
  EXPECT_FALSE(hands());
  EXPECT_EQ(2U, scheduler_.msg_queue()->message_count());
}

TEST_F(TaskSchedulerTest, ItsThreadSleepsThroughOneBacklogAfterAnother) {
  constexpr int kBacklogs = 200;
  constexpr int kMessages = 3;
  std::atomic<int> sent{0};
  Latch handled;
  TestModule module(
      [&](CQOV_Task&, CQOV_MsgPackage&) {
        // The others have to wait for this one.
        while (statsOf(kModule).in_ < static_cast<std::uint64_t>(sent)) {
          std::this_thread::yield();
        }
        handled.count();
        return 0;
      },
      1);
  ASSERT_TRUE(module.init());
  const auto sendAndWait = [&] {
    sent += kMessages;
    for (int i = 0; i < kMessages; ++i) {
      ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, 1)), nullptr));
    }
    ASSERT_TRUE(handled.waitFor(sent));
  };
  sendAndWait();
  const long before = timesAsleep("m20-scheduler");
  for (int i = 0; i < kBacklogs; ++i) {
    sendAndWait();
  }
  EXPECT_GT(kBacklogs / 2, timesAsleep("m20-scheduler") - before);
}

TEST_F(TaskSchedulerTest, RefusesAnUnknownBlockType) {
  TestModule module(ignore, 0);
  CQOV_TaskScheduler scheduler(&module, 0);
  ASSERT_EQ(0, scheduler.activate());
  scheduler.putMsg(0, new ACE_Message_Block(0, ACE_Message_Block::MB_USER), nullptr);
  EXPECT_TRUE(log_.waitFor("Scheduler thread(20) received unknown message type!"));
  scheduler.notifyExit();
  EXPECT_EQ(0, scheduler.wait());
}

namespace {

/// A scheduler whose thread never runs: one message waits for an idle worker on a thread of the
/// test, and the test plays the workers that return.
class BusyPool {
 public:
  explicit BusyPool(StderrCapture& log, bool staysLong = false)
      : scheduler_(&module_, 0),
        made_(std::make_unique<FunctionWorker>(&module_, ignore)),
        worker_(*made_),
        waiter_([this, staysLong] {
          std::optional<qov::test::LongWaits> longWaits;
          if (staysLong) {
            longWaits.emplace();
          }
          result_ = hand(0);
        }) {
    EXPECT_TRUE(log.waitFor("wait worker thread is empty begin num("));
  }
  ~BusyPool() { end(); }

  CQOV_TaskScheduler& scheduler() { return scheduler_; }
  FunctionWorker& worker() { return worker_; }

  /// Queues a message behind the one that waits.
  void queue(std::uint64_t opc) {
    ASSERT_EQ(0, scheduler_.putMsg(3, makeBlock(makeMessage(3, opc)), nullptr));
  }

  /// Returns the worker; the pool owns it from then on.
  void handOver() {
    EXPECT_EQ(0, scheduler_.return_to_work(&worker_));
    static_cast<void>(made_.release());
  }

  /// The operation of the message that the worker is given for its return; nothing when none is.
  std::optional<std::uint64_t> returnWorker() {
    handOver();
    if (worker_.msg_queue()->is_empty()) {
      return std::nullopt;
    }
    ACE_Message_Block* block = nullptr;
    EXPECT_EQ(0, worker_.msg_queue()->dequeue_head(block));
    EXPECT_TRUE(worker_.msg_queue()->is_empty());
    const std::uint64_t opc = qov::packageOf(*block)->head().opc_;
    qov::releaseWithPackage(block);
    return opc;
  }

  /// The result of the wait, once it has ended.
  int end() {
    if (waiter_.joinable()) {
      waiter_.join();
    }
    return result_;
  }

 private:
  int hand(std::uint64_t opc) { return scheduler_.handle_mb_data(makeBlock(makeMessage(3, opc))); }

  TestModule module_{ignore, 0};
  CQOV_TaskScheduler scheduler_;
  std::unique_ptr<FunctionWorker> made_;
  FunctionWorker& worker_;
  int result_ = -2;
  std::thread waiter_;
};

class BusyPoolTest : public TaskSchedulerTest {
 protected:
  BusyPoolTest() {
    CQOV_TaskScheduler::oAtomicSerialNum_ = 1;
    ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
    ace.priority_mask(ace.priority_mask(ACE_Log_Msg::PROCESS) | LM_DEBUG, ACE_Log_Msg::PROCESS);
  }
};

}  // namespace

TEST_F(BusyPoolTest, AReturningWorkerTakesWhatWaitsAndWhatStandsBehindIt) {
  BusyPool pool(log_);
  pool.queue(1);
  pool.queue(2);
  for (std::uint64_t opc = 0; opc <= 2; ++opc) {
    EXPECT_EQ(opc, pool.returnWorker());
  }
  EXPECT_EQ(0, pool.end());
  EXPECT_EQ(0U, pool.scheduler().msg_queue()->message_count());
}

TEST_F(BusyPoolTest, EveryMessageThatWaitsIsAWaitOfItsOwn) {
  BusyPool pool(log_);
  pool.queue(1);
  EXPECT_EQ(0U, pool.returnWorker());
  EXPECT_EQ(1, log_.count("wait worker thread is empty end wait num(1), time("));
  EXPECT_EQ(1, log_.count("wait worker thread is empty begin num(2), time("));
  EXPECT_EQ(0, log_.count("wait worker thread is empty end wait num(2), time("));
  EXPECT_EQ(1U, pool.returnWorker());
  EXPECT_EQ(0, pool.end());
  EXPECT_EQ(1, log_.count("wait worker thread is empty end wait num(2), time("));
  EXPECT_EQ(3, static_cast<int>(CQOV_TaskScheduler::oAtomicSerialNum_));
}

TEST_F(BusyPoolTest, AStopBlockIsLeftToTheSchedulerThread) {
  BusyPool pool(log_);
  pool.scheduler().CQOV_Task::notifyExit();
  pool.queue(1);
  EXPECT_EQ(0U, pool.returnWorker());
  EXPECT_EQ(0, pool.end());
  ACE_Message_Block* block = nullptr;
  ASSERT_LT(0, pool.scheduler().msg_queue()->dequeue_head(block));
  EXPECT_EQ(ACE_Message_Block::MB_STOP, block->msg_type());
  block->release();
  EXPECT_EQ(1U, pool.scheduler().msg_queue()->message_count());
}

TEST_F(BusyPoolTest, AStopDropsWhatWaitsAndLeavesTheRestToTheSchedulerThread) {
  BusyPool pool(log_);
  pool.queue(1);
  pool.scheduler().notifyExit();
  EXPECT_EQ(-1, pool.end());
  EXPECT_EQ(std::nullopt, pool.returnWorker());
  EXPECT_EQ(2U, pool.scheduler().msg_queue()->message_count());
}

TEST_F(BusyPoolTest, AWorkerThatIsFreeWhenNothingStandsInTheQueueJoinsTheIdleOnes) {
  BusyPool pool(log_);
  EXPECT_EQ(0U, pool.returnWorker());
  EXPECT_EQ(0, pool.end());
  EXPECT_EQ(std::nullopt, pool.returnWorker());
  EXPECT_EQ(0, pool.scheduler().handle_mb_data(makeBlock(makeMessage(3, 1))));
}

TEST_F(BusyPoolTest, ItsThreadLeavesItsStayForWhatAnybodyPutsIntoItsQueue) {
  BusyPool pool(log_, true);
  EXPECT_EQ(0U, pool.returnWorker());
  pool.queue(1);
  EXPECT_EQ(0, pool.end());
  EXPECT_EQ(1U, pool.scheduler().msg_queue()->message_count());
}

TEST_F(BusyPoolTest, AWorkerTakesWhatWaitsHoweverFullItsOwnQueueIs) {
  BusyPool pool(log_);
  CQOV_Task& worker = pool.worker();
  const std::size_t limit = worker.msg_queue()->high_water_mark();
  std::size_t count = 0;
  for (; worker.msg_queue()->message_bytes() < limit; ++count) {
    ASSERT_EQ(0, worker.putMsg(3, makeBlock(makeMessage(3, 1)), nullptr));
  }
  pool.handOver();
  EXPECT_EQ(0, pool.end());
  EXPECT_EQ(count + 1, worker.msg_queue()->message_count());
}

TEST_F(BusyPoolTest, AWorkerThatIsToldToEndTakesNothingMore) {
  BusyPool pool(log_);
  pool.worker().notifyExit();
  pool.handOver();
  EXPECT_EQ(1U, pool.worker().msg_queue()->message_count());
  TestModule module(ignore, 0);
  auto* const other = new FunctionWorker(&module, ignore);
  ASSERT_EQ(0, pool.scheduler().return_to_work(other));
  EXPECT_EQ(0, pool.end());
  EXPECT_EQ(1U, other->msg_queue()->message_count());
}
