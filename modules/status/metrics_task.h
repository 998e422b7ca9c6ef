#ifndef QOV_MODULES_STATUS_METRICS_TASK_H
#define QOV_MODULES_STATUS_METRICS_TASK_H

#include <qovpub/qov_periodic_task.h>

#include <functional>
#include <string>

#include "modules/status/metrics_file.h"
#include "modules/status/settings.h"

namespace qov::status {

/// Writes the file of metrics, again and again, on a thread of its own: a folder that does not
/// answer keeps no client of the socket waiting.
///
/// Thread: as QOVPeriodicTask; `text` is called on the task's thread.
/// Errors: one record for a file that cannot be written, and one when it is written again.
class MetricsTask : public QOVPeriodicTask {
 public:
  MetricsTask(CQOV_TaskMgr* module, const Settings& settings, std::function<std::string()> text);

  void tick() override;

 private:
  const std::function<std::string()> text_;
  MetricsFile file_;
  int error_ = 0;  ///< of the last try; 0: the file is written
};

}  // namespace qov::status

#endif
