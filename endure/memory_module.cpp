// One of the two modules of campaign "memory".
//   QOV_ENDURE_GID  its gid
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_request.h>

#include <chrono>
#include <string>

#include "endure/memory_agent.h"

namespace {

constexpr std::uint64_t kCommand = 7;
constexpr std::uint16_t kName = 1;
const std::string kLongName(100, 'n');

/// Tells the program how the request ended, whatever way the handler is left.
class Result {
 public:
  ~Result() { qov_endure_asked(how_); }
  void set(const QOVAnswer& answer) { how_ = answer.text(); }

 private:
  const char* how_ = "not asked";
};

class Worker : public QOVHandlers<Worker> {
 public:
  explicit Worker(CQOV_TaskMgr* module)
      : QOVHandlers(module, {{qov::endure::kGoAndAsk, &Worker::ask},
                             {qov::endure::kQuestion, &Worker::answer}}) {}

 private:
  int ask(CQOV_MsgPackage&) {
    Result result;
    QOVRequest request(*this, qov::endure::kAnsweringModule, qov::endure::kQuestion);
    request.addRecord(kCommand).addString(kName, kLongName);
    result.set(request.ask(std::chrono::seconds(10)));
    return 0;
  }

  int answer(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
    answer.addRecord(kCommand).addString(kName, std::string(request[0].getString(kName)));
    return 0;
  }
};

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(QOV_ENDURE_GID, 1, "memory") {}
  bool initEnv() override {
    qov_endure_scheduler(&leader()->scheduler());
    return true;
  }
  CQOV_Task* createTask() override { return new Worker(this); }
};

}  // namespace

QOV_MODULE(Module)
