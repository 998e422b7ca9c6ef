#include "modules/status/metrics_task.h"

#include <qovpub/qov_log.h>
#include <qovpub/qov_task_mgr.h>

#include <system_error>
#include <utility>

namespace qov::status {

MetricsTask::MetricsTask(CQOV_TaskMgr* module, const Settings& settings,
                         std::function<std::string()> text)
    : QOVPeriodicTask(module), text_(std::move(text)), file_(settings.metricsFile) {
  every(settings.metricsPeriod, Duration(0));
}

void MetricsTask::tick() {
  const int before = std::exchange(error_, file_.write(text_()));
  QOV_GUARD(guard, taskMgr()->moduleId());
  if (error_ != 0 && before == 0) {
    QOV_ERROR(guard, 4, "Failed to write the metrics: %s: %s", file_.path().c_str(),
              std::generic_category().message(error_).c_str());
  } else if (error_ == 0 && before != 0) {
    QOV_INFO(guard, 5, "The metrics are written again: %s", file_.path().c_str());
  }
}

}  // namespace qov::status
