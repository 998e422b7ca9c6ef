// An agent without a module loader that ends by exit(3) in a task's putMsg(), which runs on
// whatever thread does the leader's work: "leader" on the leader's own, "sender" on main's, which
// sends. With "fork" a child exits there, on main's thread, and the agent ends as the child does.
// Before, its other threads have begun: one that ACE still starts does not bear the end of ACE.
#include <ace/Log_Msg.h>
#include <ace/Semaphore.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "tests/process/modules/own_message.h"

namespace {

constexpr std::uint8_t kGid = 7;
constexpr std::uint64_t kOpc = 1;
constexpr std::uint8_t kRequestType = 1;
constexpr std::uint8_t kAsyncType = 3;
constexpr int kStatus = 3;

ACE_Semaphore begun(0);

class Manager : public CQOV_TaskMgr {
 public:
  Manager() : CQOV_TaskMgr(kGid, 1, "exiting") {}
  /// On the scheduler's thread.
  CQOV_Task* createTask() override {
    begun.release();
    return nullptr;
  }
};

[[noreturn]] void exitInChild() {
  const pid_t child = ::fork();
  if (child == 0) {
    std::exit(kStatus);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE);
}

class Exiting : public CQOV_StaticSchecheduledTask {
 public:
  Exiting(CQOV_TaskMgr* mgr, std::string where)
      : CQOV_StaticSchecheduledTask(mgr), where_(std::move(where)) {}

  int svc() override {
    begun.release();
    return CQOV_StaticSchecheduledTask::svc();
  }

  int putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) override {
    const bool onMain = std::this_thread::get_id() == main_;
    if (onMain == (where_ != "leader")) {
      where_ == "fork" ? exitInChild() : std::exit(kStatus);
    }
    return CQOV_StaticSchecheduledTask::putMsg(type, mb, timeout);
  }

  int handleMessage(CQOV_MsgPackage& message) override {
    return message.head().type_ == kRequestType
               ? send(CreateQovRspPackage(message).release(), nullptr, true)
               : 0;
  }

  void getOpcList(std::list<unsigned long long>& opcs) override { opcs.push_back(kOpc); }

 private:
  const std::string where_;
  const std::thread::id main_ = std::this_thread::get_id();
};

std::unique_ptr<CQOV_MsgPackage> makeMessage(std::uint8_t type) {
  auto message = qov::test::aMessageTo(kGid);
  message->head().type_ = type;
  message->head().spid_ = message->head().rpid_;
  message->head().smid_ = kGid;
  message->head().opc_ = kOpc;
  return message;
}

}  // namespace

int main(int, char** arguments) {
  // With debug records the leader's own thread would do it all.
  ACE_Log_Msg::instance()->priority_mask(LM_INFO | LM_WARNING | LM_ERROR | LM_CRITICAL,
                                         ACE_Log_Msg::PROCESS);
  Manager& manager = *new Manager;
  Exiting& exiting = *new Exiting(&manager, arguments[1]);
  if (!manager.init() || manager.insertStaticScheduledTask(&exiting) != 0) {
    return 1;
  }
  begun.acquire();
  begun.acquire();
  // Again where the other one was at the leader's work.
  for (CQOV_Task requester(&manager);;) {
    requester.send(makeMessage(kAsyncType).release(), nullptr, true);
    CQOV_MsgPackage* response = nullptr;
    requester.send(makeMessage(kRequestType).release(), response, nullptr, true);
    delete response;
  }
}
