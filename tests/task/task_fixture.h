#ifndef QOV_TESTS_TASK_TASK_FIXTURE_H
#define QOV_TESTS_TASK_TASK_FIXTURE_H

#include <ace/Message_Block.h>
#include <gtest/gtest.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>

#include "task/message_block.h"
#include "tests/support/latch.h"
#include "tests/support/stderr_capture.h"

/// The process id of the tests, as written into their configuration.
constexpr std::uint8_t kPid = 7;
constexpr std::uint8_t kOtherPid = 8;
constexpr std::uint8_t kModule = 20;

/// Where the tests' configuration stands.
const class AgentRoot& agentRoot();

/// A package that counts how many of its kind are alive.
class CountedPackage : public CQOV_MsgPackage {
 public:
  CountedPackage() { ++alive_; }
  ~CountedPackage() override { --alive_; }

  static int alive() { return alive_; }

 private:
  static std::atomic<int> alive_;
};

/// A message of `type` between modules of the tests' process.
std::unique_ptr<CQOV_MsgPackage> makeMessage(int type, std::uint64_t opc,
                                             std::uint8_t receiver = kModule,
                                             std::uint8_t sender = kModule);

/// A block that carries `package`.
ACE_Message_Block* makeBlock(std::unique_ptr<CQOV_MsgPackage> package);

/// A worker that runs a function.
class FunctionWorker : public CQOV_CommonTask {
 public:
  using Handler = std::function<int(CQOV_Task&, CQOV_MsgPackage&)>;

  FunctionWorker(CQOV_TaskMgr* mgr, Handler handler);
  ~FunctionWorker() override;
  int handleMessage(CQOV_MsgPackage& pkg) override { return handler_(*this, pkg); }

  static int alive() { return alive_; }

 private:
  static std::atomic<int> alive_;
  Handler handler_;
};

/// A worker of the test's own, which stays beside the pool.
class WorkerBeside : public FunctionWorker {
 public:
  using FunctionWorker::FunctionWorker;
  int idle() override { return 0; }
};

/// A module whose workers run a function.
class TestModule : public CQOV_TaskMgr {
 public:
  explicit TestModule(FunctionWorker::Handler handler, unsigned int pool = 2,
                      unsigned int id = kModule, const char* name = "test");

  CQOV_Task* createTask() override { return new FunctionWorker(this, handler_); }

 private:
  FunctionWorker::Handler handler_;
};

/// A module with one worker, which waits for the release before it is done with a message.
class PatientModule : public TestModule {
 public:
  explicit PatientModule(unsigned int id = kModule);
  ~PatientModule() override;

  Latch release_;
  Latch handled_;
};

/// A static scheduled task that runs a function.
class FunctionStaticTask : public CQOV_StaticSchecheduledTask {
 public:
  FunctionStaticTask(CQOV_TaskMgr* mgr, std::list<unsigned long long> opcs,
                     FunctionWorker::Handler handler);

  int handleMessage(CQOV_MsgPackage& pkg) override { return handler_(*this, pkg); }
  void getOpcList(std::list<unsigned long long>& opcs) override {
    opcs.insert(opcs.end(), opcs_.begin(), opcs_.end());
  }

 private:
  std::list<unsigned long long> opcs_;
  FunctionWorker::Handler handler_;
};

/// Answers a request with result `mst`.
int answer(CQOV_Task& task, CQOV_MsgPackage& request, std::uint8_t mst = 0);

/// A handler that does nothing.
int ignore(CQOV_Task& task, CQOV_MsgPackage& request);

/// Sends a request from `task`, hands it over in any case, and returns the result of send().
int request(CQOV_Task& task, std::unique_ptr<CQOV_MsgPackage> message, ACE_Time_Value timeout,
            std::unique_ptr<CQOV_MsgPackage>* response = nullptr);

/// Ends a module of id kModule + 1 whose only worker is busy with the first of `count` messages.
void endWhileMessagesWait(StderrCapture& log, int count,
                          const std::function<std::unique_ptr<CQOV_MsgPackage>()>& makeOne);

/// A request from `task` to another process, put into the leader's queue of `module` by hand. The
/// leader neither delivers nor releases such a message, so this object keeps and frees it.
class RequestElsewhere {
 public:
  RequestElsewhere(CQOV_TaskMgr& module, CQOV_Task& task, ACE_Time_Value timeout);
  ~RequestElsewhere();

  RequestElsewhere(const RequestElsewhere&) = delete;
  RequestElsewhere& operator=(const RequestElsewhere&) = delete;

  /// A response as it would come back.
  std::unique_ptr<CQOV_MsgPackage> makeResponse() const;

  /// Waits as send() does; true when a response came.
  bool waitForResponse();

 private:
  CQOV_Task& task_;
  ACE_Message_Block* const block_;
};

/// Logs of information and above go to the captured standard error; nothing counted is left over.
class TaskTest : public ::testing::Test {
 protected:
  TaskTest();
  ~TaskTest() override;

  StderrCapture log_;

 private:
  int packagesBefore_;
  int workersBefore_;
};

/// Long enough that no test waits for its end.
inline const ACE_Time_Value kLong(60);
/// Short enough to wait for its end.
inline const ACE_Time_Value kShort(0, 150000);
inline const ACE_Time_Value kNoLimit(0);

#endif
