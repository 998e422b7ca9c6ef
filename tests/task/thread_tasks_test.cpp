#include "task/thread_tasks.h"

#include <ace/Thread.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/support/sanitizers.h"
#include "tests/task/task_fixture.h"

namespace {

using ThreadTasksTest = TaskTest;

/// Notes what getCurrentTask() says on its own thread.
class SelfSeeker : public CQOV_Task {
 public:
  explicit SelfSeeker(CQOV_TaskMgr* mgr) : CQOV_Task(mgr) {}
  int svc() override {
    seen_ = getCurrentTask();
    return 0;
  }
  CQOV_Task* seen_ = nullptr;
};

}  // namespace

TEST_F(ThreadTasksTest, AThreadOfNoTaskHasNone) {
  EXPECT_EQ(nullptr, getCurrentTask());
}

TEST_F(ThreadTasksTest, ATaskIsKnownOnItsThreadFromTheFirstInstant) {
  TestModule module(ignore);
  for (int i = 0; i < 200; ++i) {
    SelfSeeker task(&module);
    ASSERT_EQ(0, task.activate());
    ASSERT_EQ(0, task.wait());
    ASSERT_EQ(&task, task.seen_);
  }
}

TEST_F(ThreadTasksTest, AThreadThatEndedIsForgotten) {
  TestModule module(ignore);
  SelfSeeker task(&module);
  ACE_thread_t id = 0;
  ASSERT_EQ(
      0, task.activate(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, 1, 0,
                       ACE_DEFAULT_THREAD_PRIORITY, -1, nullptr, nullptr, nullptr, nullptr, &id));
  ASSERT_EQ(0, task.wait());
  EXPECT_EQ(nullptr, qov::ThreadTasks::instance().find(id));
}

TEST_F(ThreadTasksTest, AThreadThatIsStartedTakesAnIdOverFromOneThatNobodyUnbound) {
  TestModule module(ignore);
  CQOV_Task foreign(&module);
  CQOV_Task started(&module);
  qov::ThreadTasks& threads = qov::ThreadTasks::instance();
  threads.bind(ACE_Thread::self(), &foreign);
  threads.bindStarted(ACE_Thread::self(), &started);
  EXPECT_EQ(&started, getCurrentTask());
}

TEST_F(ThreadTasksTest, ALateBindingOfAnEndedThreadIsIgnored) {
  TestModule module(ignore);
  FunctionStaticTask task(&module, {1}, ignore);
  ACE_thread_t id = 0;
  ASSERT_EQ(
      0, task.activate(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, 1, 0,
                       ACE_DEFAULT_THREAD_PRIORITY, -1, nullptr, nullptr, nullptr, nullptr, &id));
  task.notifyExit();
  ASSERT_EQ(0, task.wait());
  CQOV_Leader_Task leader(&module, 0);
  leader.insertStaticScheduledTask(id, &task);
  qov::ThreadTasks::instance().unbind(id, &task);
  qov::ThreadTasks::instance().bindStarted(id, &task);
  EXPECT_EQ(nullptr, qov::ThreadTasks::instance().find(id));
}

TEST_F(ThreadTasksTest, ThreadsThatEndAnyWayDoNotStandInTheWayOfOthersThatStart) {
#if QOV_TEST_TSAN
  // ACE takes the lock of a task and that of its thread manager in one order where a thread is
  // started and in the other one where it exits by itself; never for the same task at once.
  GTEST_SKIP() << "reported as a lock order inversion within ACE";
#endif
  // ACE ends a thread that exits by itself with its own lock held, which starting one takes too.
  class Leaving : public SelfSeeker {
   public:
    using SelfSeeker::SelfSeeker;
    int svc() override {
      SelfSeeker::svc();
      ACE_Thread::exit();
      return 0;
    }
  };
  TestModule module(ignore);
  const auto startMany = [&module] {
    for (int i = 0; i < 300; ++i) {
      Leaving task(&module);
      ASSERT_EQ(0, task.activate());
      ASSERT_EQ(0, task.wait());
      ASSERT_EQ(&task, task.seen_);
    }
  };
  std::thread other(startMany);
  startMany();
  other.join();
}

TEST_F(ThreadTasksTest, BindsTheThreadOfAStaticTaskThatWasNotStartedByTheRuntime) {
  TestModule module(ignore);
  {
    FunctionStaticTask task(&module, {1}, ignore);
    CQOV_Leader_Task leader(&module, 0);
    leader.insertStaticScheduledTask(ACE_Thread::self(), &task);
    EXPECT_EQ(&task, getCurrentTask());
  }
  EXPECT_EQ(nullptr, getCurrentTask());
}
