// The module `reporter`: sends an event to the MQTT module again and again, and logs which of them
// are stored there. A report names the process that has sent it, so that none is like another.
#include <qovpub/qov_log.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_periodic_task.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task_mgr.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "examples/common/messages.h"

namespace devagent {
namespace {

constexpr std::chrono::milliseconds kPeriod{20};

class ReportTask : public QOVPeriodicTask {
 public:
  explicit ReportTask(CQOV_TaskMgr* module) : QOVPeriodicTask(module) { every(kPeriod, kPeriod); }

  void tick() override {
    const std::string name = std::to_string(::getpid()) + "-" + std::to_string(++serial_);
    QOVRequest report(*this, kMqtt, kReport);
    report.addRecord(kReportRecord).addString(kReportName, name);
    QOV_GUARD(guard, kReporter);
    if (report.ask()) {
      QOV_INFO(guard, 1, "report %s is stored", name.c_str());
    } else {
      QOV_WARN(guard, 1, "report %s is not stored", name.c_str());
    }
  }

 private:
  std::uint64_t serial_ = 0;
};

class ReporterModule : public CQOV_TaskMgr {
 public:
  ReporterModule() : CQOV_TaskMgr(kReporter, 1, "reporter"), reports_(this) {}

  CQOV_Task* createTask() override { return nullptr; }
  bool initEnv() override { return insertStaticScheduledTask(&reports_) == 0; }

 private:
  ReportTask reports_;
};

}  // namespace
}  // namespace devagent

QOV_MODULE(devagent::ReporterModule)
