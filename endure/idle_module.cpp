// A module that works once, when it has begun, and never again. The last two digits of the name of
// its library are its id, so that there may be many of them.
#include <dlfcn.h>
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_periodic_task.h>
#include <qovpub/qov_request.h>

#include <chrono>
#include <filesystem>
#include <string>

namespace {

enum Operation : std::uint64_t { kBegin = 1, kAsk };

constexpr unsigned int kModules = QOV_ENDURE_MODULES;
constexpr unsigned int kWorkers = 2;

unsigned int ownId() {
  static const char here = 0;
  Dl_info info{};
  ::dladdr(&here, &info);
  const std::string name = std::filesystem::path(info.dli_fname).stem().string();
  return static_cast<unsigned int>(std::stoul(name.substr(name.size() - 2)));
}

class IdleWorker : public QOVHandlers<IdleWorker> {
 public:
  explicit IdleWorker(CQOV_TaskMgr* module)
      : QOVHandlers(module, {{kBegin, &IdleWorker::begin}, {kAsk, &IdleWorker::answer}}) {}

 private:
  /// Asks the next module, which runs or not yet, and waits for nothing.
  int begin(CQOV_MsgPackage&) {
    const unsigned int next = (taskMgr()->moduleId() + 1) % kModules;
    QOVRequest request(*this, static_cast<std::uint8_t>(next), kAsk);
    return request.askLater(std::chrono::seconds(1), [](const QOVAnswer&) {}) == QOVReason::kNone
               ? 0
               : -1;
  }
  int answer(CQOV_MsgPackage&, CQOV_MsgPackage&) { return 0; }
};

class DailyTask : public QOVPeriodicTask {
 public:
  explicit DailyTask(CQOV_TaskMgr* module) : QOVPeriodicTask(module) {
    every(std::chrono::hours(24));  // longer than any campaign
  }
  void tick() override {}
};

class IdleModule : public CQOV_TaskMgr {
 public:
  IdleModule() : CQOV_TaskMgr(ownId(), kWorkers, nullptr), daily_(this), beginning_(this) {
    handlerLimit(std::chrono::seconds(1));
  }

  CQOV_Task* createTask() override { return new IdleWorker(this); }

  bool initEnv() override {
    QOVRequest begin(beginning_, static_cast<std::uint8_t>(moduleId()), kBegin);
    return insertStaticScheduledTask(&daily_) == 0 && begin.tell() == QOVReason::kNone;
  }

 private:
  DailyTask daily_;
  CQOV_Task beginning_;
};

}  // namespace

QOV_MODULE(IdleModule)
