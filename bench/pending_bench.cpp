// One more request in a module where many wait for their responses.
#include <ace/Log_Msg.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <vector>

#include "bench/stopwatch.h"
#include "bench/table.h"
#include "tests/support/agent_root.h"

namespace {

constexpr std::uint8_t kProcess = 7;
constexpr std::uint64_t kAnswered = 1;
constexpr std::uint64_t kUnanswered = 2;

class Answerer : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;
  int handleMessage(CQOV_MsgPackage& request) override {
    return send(CreateQovRspPackage(request).release(), nullptr, true);
  }
};

class Silent : public CQOV_StaticSchecheduledTask {
 public:
  using CQOV_StaticSchecheduledTask::CQOV_StaticSchecheduledTask;
  int handleMessage(CQOV_MsgPackage& /*request*/) override { return 0; }
  void getOpcList(std::list<unsigned long long>& opcs) override { opcs.push_back(kUnanswered); }
};

/// Can send without waiting for the response; the leader waits for it nevertheless. The next send()
/// that waits drops the responses that have come by then.
class Sender : public CQOV_Task {
 public:
  using CQOV_Task::CQOV_Task;

  void waitForResponses(bool wait) { waits_ = wait; }
  int getMsg(ACE_Message_Block*& mb) override { return waits_ ? CQOV_Task::getMsg(mb) : 0; }

 private:
  bool waits_ = true;
};

class Manager : public CQOV_TaskMgr {
 public:
  explicit Manager(std::uint8_t id) : CQOV_TaskMgr(id, 1, "pending") {}
  CQOV_Task* createTask() override { return new Answerer(this); }
};

/// A module in which `count` requests wait for an hour.
class BusyModule {
 public:
  BusyModule(std::uint8_t id, int count) : manager_(id) {
    require(manager_.init() && manager_.insertStaticScheduledTask(&silent_) == 0);
    sendWithoutWaiting(count, kUnanswered);
    // Stands behind all of them in the leader's queue.
    requests(1);
  }

  // The leader still knows the sender.
  ~BusyModule() { manager_.stop(); }

  BusyModule(const BusyModule&) = delete;
  BusyModule& operator=(const BusyModule&) = delete;

  /// Sends `count` more requests, and waits until all of them are answered.
  void requests(int count) {
    sendWithoutWaiting(count - 1, kAnswered);
    require(send(kAnswered) == 0);
  }

 private:
  static void require(bool done) {
    if (!done) {
      std::perror("BusyModule");
      std::exit(1);
    }
  }

  void sendWithoutWaiting(int count, std::uint64_t opc) {
    sender_.waitForResponses(false);
    for (int i = 0; i < count; ++i) {
      send(opc);
    }
    sender_.waitForResponses(true);
  }

  /// To the module itself.
  int send(std::uint64_t opc) {
    auto message = std::make_unique<CQOV_MsgPackage>();
    QOVMsgHead& head = message->head();
    head.type_ = 1;
    head.spid_ = head.rpid_ = kProcess;
    head.smid_ = head.rmid_ = static_cast<std::uint8_t>(manager_.moduleId());
    head.opc_ = opc;
    ACE_Time_Value limit(3600);
    CQOV_MsgPackage* response = nullptr;
    const int result = sender_.send(message.release(), response, &limit, true);
    delete response;
    return result;
  }

  Manager manager_;
  Silent silent_{&manager_};
  Sender sender_{&manager_};
};

/// 10^5, or fewer in a test: filling a module takes its time.
int manyRequests() {
  return std::getenv("QOV_BENCH_SHORT") != nullptr ? 1000 : 100000;
}

/// Both modules, for as long as the process runs.
struct Modules {
  Modules() : few(20, 100), many(21, manyRequests()) {}

  BusyModule few;
  BusyModule many;
};

Modules& modules() {
  static const AgentRoot root("pending_bench");
  static const bool configured = [] {
    root.writeConfig(5);
    setenv("QOV_ROOT", root.path().c_str(), 1);
    // Nor an error for each response that nobody waits for.
    ACE_Log_Msg::instance()->priority_mask(LM_EMERGENCY, ACE_Log_Msg::PROCESS);
    return true;
  }();
  static Modules both;
  static_cast<void>(configured);
  return both;
}

/// Some more requests among 10^5 that wait to as many among 10^2.
void oneMore(benchmark::State& state) {
  if (!useProcessors(state, 1)) {
    return;
  }
  Modules& both = modules();
  constexpr int kRequests = 100;
  constexpr int kBatch = 10;
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    state.SetIterationTime(sample([&] { both.many.requests(kRequests); }, kBatch, ours));
    sample([&] { both.few.requests(kRequests); }, kBatch, theirs);
  }
  reportCost(state, ours, theirs);
}

}  // namespace

int main(int argc, char** argv) {
  row("10^5 pending requests, cost of one more, against 10^2", "<= 1.3", oneMore);
  return runTable(argc, argv);
}
