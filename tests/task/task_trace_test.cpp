#include <ace/Log_Msg.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/task/task_fixture.h"

namespace {

constexpr const char* kSend =
    "int CQOV_Task::send(const CQOV_MsgPackage*, CQOV_MsgPackage*&, ACE_Time_Value*, bool)";
constexpr const char* kAsyncSend =
    "int CQOV_Task::send(const CQOV_MsgPackage*, ACE_Time_Value*, bool)";
constexpr const char* kCreatePool = "int CQOV_TaskScheduler::createPool()";
constexpr const char* kWorker = "virtual int CQOV_CommonTask::svc()";
constexpr const char* kInsert =
    "int CQOV_TaskMgr::insertStaticScheduledTask(CQOV_StaticSchecheduledTask*)";

/// Every record goes to the captured standard error, traces too.
class TaskTraceTest : public TaskTest {
 protected:
  TaskTraceTest()
      : module_([](CQOV_Task& task, CQOV_MsgPackage& pkg) { return answer(task, pkg); }) {
    ACE_Log_Msg& ace = *ACE_Log_Msg::instance();
    ace.priority_mask(ace.priority_mask(ACE_Log_Msg::PROCESS) | LM_TRACE, ACE_Log_Msg::PROCESS);
  }

  int entered(const char* operation) {
    return log_.count("] enter " + std::string(operation) + "...\n");
  }
  int left(const char* operation, const char* how) {
    return log_.count("] leave " + std::string(operation) + ": " + how + "\n");
  }

  TestModule module_;
};

}  // namespace

TEST_F(TaskTraceTest, ASynchronousSendIsTracedWhetherItSucceedsOrNot) {
  ASSERT_TRUE(module_.init());
  CQOV_Task task(&module_);
  EXPECT_EQ(0, request(task, makeMessage(1, 1), kLong));
  EXPECT_EQ(1, entered(kSend));
  EXPECT_EQ(1, left(kSend, "OK"));
  CQOV_MsgPackage* response = nullptr;
  EXPECT_EQ(-1, task.send(nullptr, response, nullptr, true));
  EXPECT_EQ(2, entered(kSend));
  EXPECT_EQ(1, left(kSend, "NOK"));
}

TEST_F(TaskTraceTest, AnAsynchronousSendIsTracedToo) {
  CQOV_Task task(&module_);
  EXPECT_EQ(0, task.send(makeMessage(3, 1).release(), nullptr, true));
  EXPECT_EQ(1, entered(kAsyncSend));
  EXPECT_EQ(1, left(kAsyncSend, "OK"));
}

TEST_F(TaskTraceTest, TheCreationOfThePoolAndTheLoopOfEachWorkerAreTraced) {
  ASSERT_TRUE(module_.init());
  EXPECT_EQ(1, entered(kCreatePool));
  EXPECT_EQ(1, left(kCreatePool, "OK"));
  EXPECT_TRUE(log_.waitFor("] enter " + std::string(kWorker) + "...\n", 2));
  EXPECT_EQ(0, log_.count("] leave " + std::string(kWorker)));
  module_.stop();
  EXPECT_EQ(2, entered(kWorker));
  EXPECT_EQ(2, left(kWorker, "OK"));
}

TEST_F(TaskTraceTest, TheInsertionOfAStaticTaskIsTraced) {
  FunctionStaticTask task(&module_, {1}, ignore);
  EXPECT_EQ(0, module_.insertStaticScheduledTask(&task));
  EXPECT_EQ(1, entered(kInsert));
  EXPECT_EQ(1, left(kInsert, "OK"));
  EXPECT_EQ(-1, module_.insertStaticScheduledTask(nullptr));
  EXPECT_EQ(2, entered(kInsert));
  EXPECT_EQ(1, left(kInsert, "NOK"));
  module_.stop();
}
