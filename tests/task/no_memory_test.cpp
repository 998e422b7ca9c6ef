#include <ace/Reactor.h>
#include <ace/Timer_Queue_T.h>
#include <gtest/gtest.h>
#include <qovplatform/platform_guard.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_scheduler.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "module/uncaught.h"
#include "task/handler_watch.h"
#include "task/leader_queue.h"
#include "task/module_context.h"
#include "task/pending_requests.h"
#include "task/wait_reactor.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/failing_threads.h"
#include "tests/task/task_fixture.h"

namespace {

using qov::test::FailingAllocations;

/// How the task's queue stands for a thread that would wait now: with nothing to wait for, woken,
/// or with a block.
enum class Wait { kGoesOn, kIsWoken, kGetsABlock };

Wait look(CQOV_Task& task) {
  ACE_Message_Block* block = nullptr;
  ACE_Time_Value past;
  if (task.msg_queue()->dequeue_head(block, &past) != -1) {
    qov::releaseWithPackage(block);
    return Wait::kGetsABlock;
  }
  return errno == ESHUTDOWN ? Wait::kIsWoken : Wait::kGoesOn;
}

class TaskNoMemoryTest : public TaskTest {
 protected:
  TaskNoMemoryTest() : module_(ignore), task_(&module_) {}

  // Never started: what is sent stays in its leader's queue until it goes.
  TestModule module_;
  CQOV_Task task_;
};

/// The test plays the thread of the leader.
class LeaderNoMemoryTest : public TaskNoMemoryTest {
 protected:
  LeaderNoMemoryTest() : leader_(&module_, 0) {
    // The thread's first one takes memory of its own.
    const FowGuard watch(0, 1, 3600);
  }
  ~LeaderNoMemoryTest() override {
    leader_.end();
    for (ACE_Message_Block* const block : elsewhere_) {
      qov::releaseWithPackage(block);
    }
  }

  /// A request of task_ to another process, whose message stays with the test. Its `n` makes it
  /// different from the others.
  ACE_Message_Block* makeRequest(std::uint32_t n = 0) {
    auto message = makeMessage(1, 1);
    message->head().rpid_ = kOtherPid;
    message->head().sn_ = n;
    ACE_Message_Block* const block = makeBlock(std::move(message));
    const TimeoutDesc* const desc = new TimeoutDesc{&task_, kLong, -1};
    EXPECT_TRUE(qov::chainTimeoutDesc(*block, desc));
    return block;
  }

  /// Hands the leader a request that it takes.
  void takes(ACE_Message_Block* request) {
    leader_.handleDataMsg(request);
    EXPECT_EQ(Wait::kGoesOn, look(task_));
    elsewhere_.push_back(request);
  }

  void hangUp() { leader_.handle_mb_hangup(); }

  CQOV_Leader_Task leader_;
  std::vector<ACE_Message_Block*> elsewhere_;
};

constexpr std::size_t kTimerSize = sizeof(ACE_Timer_Node_T<ACE_Event_Handler*>);

}  // namespace

TEST_F(TaskNoMemoryTest, ABlockIsMadeWholeOrNotAtAll) {
  long failures = 0;
  for (bool failed = true; failed; ++failures) {
    const FailingAllocations fail(failures, 1);
    errno = 0;
    ACE_Message_Block* const block = qov::makePointerBlock(this);
    failed = fail.hasFailed();
    EXPECT_EQ(failed, block == nullptr);
    EXPECT_EQ(failed ? ENOMEM : 0, errno);
    ACE_Message_Block::release(block);
  }
  EXPECT_EQ(1 + 1, failures);
}

TEST_F(TaskNoMemoryTest, ADescriptorIsChainedOrStaysWithTheCaller) {
  const TimeoutDesc desc{&task_, kNoLimit, -1};
  ACE_Message_Block block;
  long failures = 0;
  for (bool failed = true; failed; ++failures) {
    const FailingAllocations fail(failures, 1);
    errno = 0;
    const bool chained = qov::chainTimeoutDesc(block, &desc);
    failed = fail.hasFailed();
    EXPECT_EQ(failed, !chained);
    EXPECT_EQ(failed, block.cont() == nullptr);
    EXPECT_EQ(failed ? ENOMEM : 0, errno);
  }
  EXPECT_EQ(1 + 1, failures);
  block.cont()->release();
  block.cont(nullptr);
}

TEST_F(TaskNoMemoryTest, ASynchronousRequestThatCannotBeHandedOverIsDeletedInAnyCase) {
  // The block, the continuation and the descriptor.
  for (long failure = 0; failure < 3; ++failure) {
    for (const bool freeRequest : {false, true}) {
      CQOV_MsgPackage* const request = makeMessage(1, 1).release();
      const int before = CountedPackage::alive();
      CQOV_MsgPackage* response = nullptr;
      const FailingAllocations fail(failure, 1);
      errno = 0;
      EXPECT_EQ(-1, task_.send(request, response, nullptr, freeRequest));
      EXPECT_EQ(ENOMEM, errno);
      EXPECT_TRUE(fail.hasFailed());
      EXPECT_EQ(before - 1, CountedPackage::alive());
    }
  }
  EXPECT_EQ(0, log_.count("Worker(20) failed"));
}

TEST_F(TaskNoMemoryTest, AnAsynchronousMessageThatCannotBeHandedOverIsDeletedInAnyCase) {
  for (const bool freeRequest : {false, true}) {
    CQOV_MsgPackage* const message = makeMessage(3, 1).release();
    const int before = CountedPackage::alive();
    const FailingAllocations fail(0, 1);
    errno = 0;
    EXPECT_EQ(-1, task_.send(message, nullptr, freeRequest));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_TRUE(fail.hasFailed());
    EXPECT_EQ(before - 1, CountedPackage::alive());
  }
}

TEST_F(TaskNoMemoryTest, ASecondBlockOfTheSameMessageOutlivesTheFirst) {
  ACE_Message_Block* const first = qov::makePointerBlock(this);
  ASSERT_TRUE(qov::chainTimeoutDesc(*first, nullptr));
  for (ACE_Message_Block* const second : {first->duplicate(), first->clone()}) {
    void* pointer = nullptr;
    EXPECT_TRUE(qov::readPointer(*second, pointer));
    EXPECT_EQ(this, pointer);
    EXPECT_EQ(first->total_size(), second->total_size());
    EXPECT_NE(first->rd_ptr(), second->rd_ptr());
    second->release();
  }
  ACE_Message_Block* const second = first->duplicate();
  first->release();
  void* pointer = nullptr;
  EXPECT_TRUE(qov::readPointer(*second, pointer));
  EXPECT_EQ(this, pointer);
  second->release();
}

TEST_F(TaskNoMemoryTest, ABlockChainedBehindAPlainOneGoesWithIt) {
  auto* const plain = new ACE_Message_Block(8);
  plain->cont(qov::makePointerBlock(this));
  plain->release();
}

TEST_F(TaskNoMemoryTest, HandingABlockOverNeedsNone) {
  CQOV_MsgPackage* const message = makeMessage(3, 1).release();
  const FailingAllocations fail(1);
  EXPECT_EQ(0, task_.send(message, nullptr, true));
  EXPECT_FALSE(fail.hasFailed());
}

TEST_F(TaskNoMemoryTest, AnExitNoticeThatCannotBeQueuedIsLoggedAllTheSame) {
  // The block and its data part; it has no data.
  for (long failure = 0; failure < 2; ++failure) {
    const FailingAllocations fail(failure, 1);
    errno = 0;
    task_.notifyExit();
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_TRUE(fail.hasFailed());
    EXPECT_EQ(Wait::kGoesOn, look(task_));
  }
  task_.notifyExit();
  EXPECT_EQ(Wait::kGetsABlock, look(task_));
  EXPECT_EQ(3, log_.count("Task will exit!"));
}

TEST_F(TaskNoMemoryTest, AModuleWithoutALeaderDoesNothingAndSurvives) {
  for (const std::size_t size :
       {sizeof(CQOV_Leader_Task), sizeof(qov::LeaderQueue), sizeof(CQOV_TaskScheduler)}) {
    errno = 0;
    std::optional<TestModule> module;
    bool failed = false;
    int error = 0;
    {
      const auto fail = FailingAllocations::ofSize(size);
      module.emplace(ignore, 2, kModule + 1, "lone");
      error = errno;
      failed = fail.hasFailed();
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(ENOMEM, error);
    EXPECT_EQ(-1, module->gid());
    EXPECT_EQ("lone", module->name());
    EXPECT_EQ("lone", CQOVDebugKitMgr::instance()->find(kModule + 1)->name());
    EXPECT_FALSE(module->init());

    CQOV_Task task(&*module);
    EXPECT_EQ(-1, module->idle(&task));
    EXPECT_EQ(-1, request(task, makeMessage(1, 1), kNoLimit));
    EXPECT_EQ(-1, task.send(makeMessage(3, 1).release(), nullptr, true));
    FunctionStaticTask own(&*module, {1}, ignore);
    EXPECT_EQ(-1, module->insertStaticScheduledTask(&own));
    EXPECT_EQ(0U, own.thr_count());
    module->stop();
    module.reset();
    EXPECT_EQ("QOVPUBLIC", CQOVDebugKitMgr::instance()->find(kModule + 1)->name());
  }
}

TEST_F(TaskNoMemoryTest, PendingRequestsAreMadeWithTheirTableOrNotAtAll) {
  ACE_Reactor& reactor = *ACE_Reactor::instance();
  qov::ModuleCounters counters(kModule);
  const FailingAllocations fail(0);
  EXPECT_THROW(qov::PendingRequests(reactor, task_, counters), std::bad_alloc);
}

TEST_F(TaskNoMemoryTest, AReactorIsMadeWholeOrNotAtAll) {
  long failures = 0;
  for (bool failed = true; failed; ++failures) {
    std::optional<qov::WaitReactor> reactor;
    const FailingAllocations fail(failures, 1);
    try {
      reactor.emplace(task_);
    } catch (const std::bad_alloc&) {
    }
    failed = fail.hasFailed();
    EXPECT_EQ(failed, !reactor) << "allocation " << failures;
  }
  // At least the nodes of the timer wheel.
  EXPECT_LT(1024, failures);
}

TEST_F(TaskNoMemoryTest, AManagerWorksOrHasNoLeaderOrIsNotMadeWhicheverAllocationOfItFails) {
  ACE_Reactor::instance();
  long failures = 0;
  for (bool failed = true; failed; ++failures) {
    std::optional<TestModule> module;
    int error = 0;
    {
      const FailingAllocations fail(failures, 1);
      errno = 0;
      try {
        module.emplace(ignore, 0, kModule + 1, "lone");
        error = errno;
      } catch (const std::bad_alloc&) {
      }
      failed = fail.hasFailed();
    }
    const bool works = module && module->gid() == kModule + 1;
    EXPECT_EQ(works, module && module->init()) << "allocation " << failures;
    EXPECT_TRUE(works || !module || (failed && error == ENOMEM)) << "allocation " << failures;
  }
  // At least the timer wheel's nodes.
  EXPECT_LT(1024, failures);
}

TEST_F(TaskNoMemoryTest, AStartedTaskThatCannotBeToldToEndGoesOn) {
  FunctionStaticTask own(&module_, {}, ignore);
  ASSERT_EQ(0, module_.insertStaticScheduledTask(&own));
  // The block and its data part.
  for (int failure = 0; failure < 2; ++failure) {
    const FailingAllocations fail(failure, 1);
    errno = 0;
    own.notifyExit();
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_TRUE(fail.hasFailed());
  }
  own.notifyExit();
  own.wait();
  EXPECT_EQ(3, log_.count("Task will exit!"));
}

TEST_F(TaskNoMemoryTest, AStaticTaskThatCannotBeToldToEndStillWaitsForItsResponses) {
  TestModule module(ignore, 1, kModule + 1);
  ASSERT_TRUE(module.init());
  // Never started: the test plays its thread.
  FunctionStaticTask own(&module, {}, ignore);
  {
    const FailingAllocations fail(0, 1);
    own.notifyExit();
    EXPECT_TRUE(fail.hasFailed());
  }
  errno = 0;
  EXPECT_EQ(-1, request(own, makeMessage(1, 1, kModule + 1, kModule + 1), kShort));
  EXPECT_EQ(ETIMEDOUT, errno);
  own.notifyExit();
  EXPECT_EQ(-1, request(own, makeMessage(1, 1, kModule + 1, kModule + 1), kNoLimit));
  EXPECT_EQ(ECONNABORTED, errno);
  module.stop();
}

TEST_F(TaskNoMemoryTest, ASchedulerThatCannotBeToldToEndStillWaitsForItsWorkers) {
  PatientModule module(kModule + 1);
  ASSERT_TRUE(module.init());
  {
    const FailingAllocations fail(0, 1);
    qov::ModuleContext::leaderOf(module)->scheduler().notifyExit();
    EXPECT_TRUE(fail.hasFailed());
  }
  for (int i = 0; i < 3; ++i) {
    EXPECT_LT(0, module.putq(makeBlock(makeMessage(3, 1, kModule + 1, kModule + 1)), nullptr));
  }
  module.release_.count();
  EXPECT_TRUE(module.handled_.waitFor(3));
}

TEST_F(TaskNoMemoryTest, ATaskIsNotStartedWithoutRoomForItsThreadsId) {
  FunctionStaticTask own(&module_, {}, ignore);
  const FailingAllocations fail(0, 1);
  errno = 0;
  EXPECT_EQ(-1, module_.insertStaticScheduledTask(&own));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_TRUE(fail.hasFailed());
  EXPECT_EQ(0U, own.thr_count());
}

TEST(TaskNoMemoryDeathTest, AModuleThatCannotStopEndsTheProcessWithOneLine) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        qov::tellUncaught();
        std::optional<TestModule> module;
        module.emplace(ignore, 2, kModule + 1);
        module->init();
        const FailingAllocations fail(0);
        module.reset();
      },
      ::testing::KilledBySignal(SIGABRT), "Failed to go on in thread .+: Cannot allocate memory\n");
}

TEST(TaskNoMemoryDeathTest, ATaskThatIsStartedTooLateAndCannotBeToldEndsTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        qov::tellUncaught();
        TestModule module(ignore, 0, kModule + 1);
        module.stop();
        FunctionStaticTask own(&module, {}, ignore);
        const auto fail = FailingAllocations::ofObjectsThatGiveNull(sizeof(ACE_Message_Block));
        try {
          module.insertStaticScheduledTask(&own);
        } catch (const std::bad_alloc&) {
          std::_Exit(3);  // as a handler's caller goes on
        }
      },
      ::testing::KilledBySignal(SIGABRT), "Failed to go on in thread .*: Cannot allocate memory\n");
}

TEST_F(TaskNoMemoryTest, AManagerThatCannotStartItsSchedulerNorTellItsLeaderSaysSo) {
  TestModule module(ignore, 0, kModule + 1);
  const qov::test::FailingThreads noSecond(1);
  const auto fail = FailingAllocations::ofObjectsThatGiveNull(sizeof(ACE_Message_Block));
  bool runs = true;
  EXPECT_NO_THROW(runs = qov::ModuleContext::leaderOf(module)->run());
  EXPECT_FALSE(runs);
  EXPECT_TRUE(fail.hasFailed());
}

TEST_F(TaskNoMemoryTest, OfAWatchOverHandlersThatCannotGoOnComesThrough) {
  qov::WaitReactor implementation(task_);
  ACE_Reactor reactor(&implementation);
  qov::ModuleCounters counters(kModule);
  const qov::PendingRequests pending(reactor, task_, counters);
  qov::RunningHandlers handlers;
  qov::HandlerWatch watch(kModule, reactor, handlers, pending);
  handlers.limit(std::chrono::hours(1));
  const qov::RunningHandlers::Entry running(
      handlers, {QOVMsgHead(), nullptr, qov::RunningHandlers::Clock::now()});
  // The timer wheel keeps timers in reserve.
  for (bool failed = false; !failed;) {
    const auto fail = FailingAllocations::ofSize(kTimerSize);
    reactor.schedule_timer(&task_, nullptr, kLong);
    failed = fail.hasFailed();
  }
  const auto fail = FailingAllocations::ofSize(kTimerSize);
  EXPECT_THROW(watch.follow(), std::bad_alloc);
}

TEST_F(LeaderNoMemoryTest, TheSenderOfARequestThatCannotBeRememberedIsWokenAtOnce) {
  ACE_Message_Block* const request = makeRequest(0x1F);
  const int before = CountedPackage::alive();
  {
    // What is remembered is all that needs any.
    const FailingAllocations fail(0, 1);
    errno = 0;
    leader_.handleDataMsg(request);
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_TRUE(fail.hasFailed());
  }
  EXPECT_EQ(Wait::kIsWoken, look(task_));
  EXPECT_EQ(before - 1, CountedPackage::alive());
  EXPECT_EQ(1, log_.count("Failed to bind REQ message! "
                          "SPID=7,SMID=20,RPID=8,RMID=20,OPC=1,SN=0x1f,TP=1\n"));
  EXPECT_EQ(0, log_.count("recv msg error."));
  takes(makeRequest(0x1F));
  hangUp();
  EXPECT_EQ(Wait::kIsWoken, look(task_));
}

TEST_F(LeaderNoMemoryTest, TheSenderOfARequestThatCannotBeTimedIsWokenAtOnce) {
  constexpr std::uint32_t kEnough = 20000;
  bool failed = false;
  std::uint32_t sn = 0;
  // The timer wheel keeps timers in reserve.
  for (; !failed && sn < kEnough; ++sn) {
    ACE_Message_Block* const request = makeRequest(sn);
    const int before = CountedPackage::alive();
    const auto fail = FailingAllocations::ofSize(kTimerSize);
    errno = 0;
    leader_.handleDataMsg(request);
    failed = fail.hasFailed();
    EXPECT_EQ(failed ? ENOMEM : 0, errno);
    EXPECT_EQ(failed ? Wait::kIsWoken : Wait::kGoesOn, look(task_));
    EXPECT_EQ(failed ? before - 1 : before, CountedPackage::alive());
    if (!failed) {
      elsewhere_.push_back(request);
    }
  }
  EXPECT_TRUE(failed);
  EXPECT_EQ(1, log_.count("Failed to bind REQ message! SPID=7,"));
  // Nothing of it is left pending.
  takes(makeRequest(sn - 1));
}

TEST_F(LeaderNoMemoryTest, AHangUpNeedsNone) {
  takes(makeRequest());
  {
    const FailingAllocations fail(0);
    hangUp();
  }
  EXPECT_EQ(Wait::kIsWoken, look(task_));
}

namespace {

/// A module whose worker leaves it to the test to return it to the pool.
class ModuleWithAStray : public TestModule {
 public:
  ModuleWithAStray() : TestModule(ignore, 0) {}
  CQOV_Task* createTask() override { return stray_ = new Stray(this, ignore); }

  CQOV_Task* stray_ = nullptr;

 private:
  class Stray : public FunctionWorker {
   public:
    using FunctionWorker::FunctionWorker;
    int idle() override { return 0; }
  };
};

/// A module whose one worker the test has made.
class CreatedElsewhere : public TestModule {
 public:
  explicit CreatedElsewhere(CQOV_Task& worker) : TestModule(ignore, 0), worker_(worker) {}
  CQOV_Task* createTask() override { return &worker_; }

 private:
  CQOV_Task& worker_;
};

}  // namespace

TEST_F(TaskNoMemoryTest, APoolWithoutRoomForItsWorkersIsNone) {
  TestModule module(ignore, 0, kModule + 1);
  CQOV_TaskScheduler scheduler(&module, 1);
  const auto fail = FailingAllocations::ofSize(sizeof(void*));
  EXPECT_THROW(scheduler.createPool(), std::bad_alloc);
}

TEST_F(TaskNoMemoryTest, NorIsOneWithoutRoomForAWorkerThatRunsAlready) {
  FunctionWorker worker(&module_, ignore);
  ASSERT_EQ(0, worker.activate(THR_NEW_LWP | THR_JOINABLE, 1));
  CreatedElsewhere module(worker);
  CQOV_TaskScheduler scheduler(&module, 1);
  {
    const auto fail = FailingAllocations::ofSize(sizeof(void*));
    EXPECT_THROW(scheduler.createPool(), std::bad_alloc);
  }
  EXPECT_EQ(0, log_.count("Failed to start a worker thread"));
  // Left alone.
  worker.notifyExit();
  worker.wait();
}

TEST_F(TaskNoMemoryTest, AWorkerReturnsToThePoolWithoutAny) {
  ModuleWithAStray module;
  // Never started: the test plays its thread.
  CQOV_TaskScheduler scheduler(&module, 1);
  ASSERT_EQ(0, scheduler.createPool());
  ASSERT_EQ(0, scheduler.handle_mb_data(makeBlock(makeMessage(3, 1))));
  module.stop();
  {
    const FailingAllocations fail(0);
    EXPECT_EQ(0, scheduler.return_to_work(module.stray_));
    EXPECT_FALSE(fail.hasFailed());
  }
}
