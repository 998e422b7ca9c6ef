// The module `qovstatus`: tells operators over a local socket what the agent does.
#include <pthread.h>
#include <qovpub/qov_log.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_utility.h>

#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "modules/status/answers.h"
#include "modules/status/metrics_task.h"
#include "modules/status/server.h"
#include "modules/status/settings.h"
#include "modules/status/socket_path.h"

namespace qov::status {
namespace {

/// The thread that serves the socket. None of a task of the module: those end with the event loop,
/// and this one shall tell what hangs while the modules stop.
class ServingThread {
 public:
  /// Throws std::system_error.
  ServingThread(Server& server, const std::string& name)
      : server_(server), thread_([&server, name] {
          ::pthread_setname_np(::pthread_self(), name.c_str());
          server.run();
        }) {}
  ~ServingThread() {
    server_.stop();
    thread_.join();
  }
  ServingThread(const ServingThread&) = delete;
  ServingThread& operator=(const ServingThread&) = delete;

 private:
  Server& server_;
  std::thread thread_;
};

class StatusModule : public CQOV_TaskMgr {
 public:
  StatusModule() : StatusModule(readSettings()) {}

  CQOV_Task* createTask() override { return nullptr; }

  /// Runs in a daemon, too, when it has been split off: its socket is its own.
  bool initEnv() override try {
    warnOfUnknownKeys();
    server_ = std::make_unique<Server>(
        settings_, [this](std::string_view request, const ClientCounts& clients, Kept& kept) {
          return answers_.answer(request, clients, kept);
        });
    thread_ =
        std::make_unique<ServingThread>(*server_, "m" + std::to_string(moduleId()) + "-status");
    return startMetrics();
  } catch (const std::exception& failure) {
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
  Answers answers_;
  // Used by the module's threads, which have ended when these are destroyed: the last one first.
  std::unique_ptr<Server> server_;
  std::unique_ptr<MetricsTask> metrics_;
  std::unique_ptr<ServingThread> thread_;
};

}  // namespace
}  // namespace qov::status

QOV_MODULE(qov::status::StatusModule)
