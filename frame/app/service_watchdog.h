#ifndef QOV_FRAME_APP_SERVICE_WATCHDOG_H
#define QOV_FRAME_APP_SERVICE_WATCHDOG_H

#include <ace/Event_Handler.h>

#include <chrono>
#include <optional>
#include <set>

#include "frame/app/service_manager.h"
#include "frame/app/stuck_leaders.h"

namespace qov {

/// Feeds the service manager's watchdog while the process reactor turns and every leader gets on
/// with its work, four times in the span that the manager waits. A leader that is stuck for half of
/// that span stops the feeding, and is logged; so the manager ends the agent if that does not pass.
///
/// Thread: the one that runs the process reactor.
/// Owns:   a timer of the process reactor, if the manager waits.
/// Errors: one record when there is no timer; nothing is fed then.
class ServiceWatchdog : public ACE_Event_Handler {
 public:
  explicit ServiceWatchdog(ServiceManager& manager);
  ~ServiceWatchdog() override;

  ServiceWatchdog(const ServiceWatchdog&) = delete;
  ServiceWatchdog& operator=(const ServiceWatchdog&) = delete;

  int handle_timeout(const ACE_Time_Value& now, const void* act) override;

 private:
  /// Tells of those that were not stuck when this looked last, and of those that are not any more.
  void tell(const std::vector<StuckLeaders::Leader>& stuck);

  ServiceManager& manager_;
  std::optional<StuckLeaders> progress_;
  std::set<unsigned int> stuck_;
  long timerId_ = -1;
};

}  // namespace qov

#endif
