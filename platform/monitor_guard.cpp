#include "platform/guard_time.h"
#include "platform/shutdown_watchdog.h"
#include "qovplatform/platform_guard.h"

MonitorGuard::MonitorGuard(unsigned seconds) {
  if (seconds != 0) {
    watchdog_ =
        std::make_unique<qov::platform::ShutdownWatchdog>(qov::platform::guardTime(1), seconds);
  }
}

MonitorGuard::~MonitorGuard() = default;

void MonitorGuard::beforeAbort(void (*report)()) {
  if (watchdog_ != nullptr) {
    watchdog_->beforeAbort(report);
  }
}

void MonitorGuard::shutdownBegins() {
  if (watchdog_ != nullptr) {
    watchdog_->start();
  }
}
