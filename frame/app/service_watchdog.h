#ifndef QOV_FRAME_APP_SERVICE_WATCHDOG_H
#define QOV_FRAME_APP_SERVICE_WATCHDOG_H

#include <ace/Event_Handler.h>

#include <chrono>
#include <optional>
#include <set>
#include <vector>

#include "frame/app/service_manager.h"
#include "frame/app/stuck_leaders.h"

namespace qov {

/// Feeds the service manager's watchdog while the process reactor turns and every leader gets on
/// with its work, four times in the span that the manager waits. A leader that is stuck for half of
/// that span stops the feeding, and is logged; so the manager ends the agent if that does not pass.
///
/// Thread: the one that runs the process reactor.
/// Owns:   a timer's descriptor in the process reactor, if the manager waits. The reactor's own
///         timers go by the time of day, which may be set back.
/// Errors: one record when there is no timer; nothing is fed then. Without memory it does not feed
///         this time.
class ServiceWatchdog : public ACE_Event_Handler {
 public:
  explicit ServiceWatchdog(ServiceManager& manager);
  ~ServiceWatchdog() override;

  ServiceWatchdog(const ServiceWatchdog&) = delete;
  ServiceWatchdog& operator=(const ServiceWatchdog&) = delete;

  ACE_HANDLE get_handle() const override { return timer_; }
  int handle_input(ACE_HANDLE handle) override;

 private:
  /// An errno value; 0 when the timer runs.
  int startTimer(std::chrono::microseconds interval);
  void look();
  /// Tells of those that were not stuck when this looked last, and of those that are not any more.
  void tell(const std::vector<StuckLeaders::Leader>& stuck);

  ServiceManager& manager_;
  std::optional<StuckLeaders> progress_;
  std::set<unsigned int> stuck_;
  ACE_HANDLE timer_ = ACE_INVALID_HANDLE;
};

}  // namespace qov

#endif
