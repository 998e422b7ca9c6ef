// The module `qovstatus`: tells operators over a local socket what the agent does.
#include <qovpub/qov_exception.h>
#include <qovpub/qov_log.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_utility.h>

#include <memory>
#include <string>

#include "modules/status/answers.h"
#include "modules/status/metrics_task.h"
#include "modules/status/server.h"
#include "modules/status/settings.h"
#include "modules/status/socket_path.h"

namespace qov::status {
namespace {

/// The thread that serves the socket. It waits there alone: nobody sends it messages.
class ServingTask : public CQOV_Task {
 public:
  ServingTask(CQOV_TaskMgr* module, Server& server) : CQOV_Task(module), server_(server) {}

  /// Starts the thread among those of the module, which stops and joins it. 0 or -1.
  int start() {
    const std::string name = "m" + std::to_string(taskMgr()->moduleId()) + "-status";
    const char* names[] = {name.c_str()};
    return activate(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, 1, 0,
                    ACE_DEFAULT_THREAD_PRIORITY, taskMgr()->gid(), nullptr, nullptr, nullptr,
                    nullptr, nullptr, names);
  }

  int svc() override {
    server_.run();
    return 0;
  }

  void notifyExit() override {
    server_.stop();
    CQOV_Task::notifyExit();
  }

 private:
  Server& server_;
};

class StatusModule : public CQOV_TaskMgr {
 public:
  StatusModule() : StatusModule(readSettings()) {}

  CQOV_Task* createTask() override { return nullptr; }

  /// Runs in a daemon, too, when it has been split off: its socket is its own.
  bool initEnv() override try {
    warnOfUnknownKeys();
    server_ = std::make_unique<Server>(
        settings_, [this](std::string_view request, const ClientCounts& clients) {
          return answers_.answer(request, clients);
        });
    task_ = std::make_unique<ServingTask>(this, *server_);
    return task_->start() == 0 && startMetrics();
  } catch (const CQOV_Exception& failure) {
    QOV_GUARD(guard, moduleId());
    QOV_ERROR(guard, 1, "%s", failure.what());
    return false;
  }

 private:
  static constexpr unsigned int kNoWorkers = 0;

  explicit StatusModule(const Settings& settings)
      : CQOV_TaskMgr(settings.moduleId, kNoWorkers, "status"),
        settings_(settings),
        answers_(settings.moduleId) {}

  void warnOfUnknownKeys() const {
    QOV_GUARD(guard, settings_.moduleId);
    for (const std::string& key : settings_.unknownKeys) {
      QOV_WARN(guard, 3, "%s: [%s] %s: unknown key, ignored",
               QOV_Utility::getProcessCfgFileName().c_str(), kSection, key.c_str());
    }
  }

  /// If a file is wanted.
  bool startMetrics() {
    if (settings_.metricsFile.empty()) {
      return true;
    }
    metrics_ = std::make_unique<MetricsTask>(
        this, settings_, [this] { return answers_.metricsForFile(server_->counts()); });
    return insertStaticScheduledTask(metrics_.get()) == 0;
  }

  const Settings settings_;
  const Answers answers_;
  // Used by the module's threads, which have ended when these are destroyed.
  std::unique_ptr<Server> server_;
  std::unique_ptr<ServingTask> task_;
  std::unique_ptr<MetricsTask> metrics_;
};

}  // namespace
}  // namespace qov::status

QOV_MODULE(qov::status::StatusModule)
