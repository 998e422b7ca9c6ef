#ifndef QOV_FRAME_APP_SERVICE_MANAGER_H
#define QOV_FRAME_APP_SERVICE_MANAGER_H

#include <chrono>
#include <optional>
#include <string>

namespace qov {

/// The service manager that has started the agent (systemd), which is told what the agent does:
/// lines in a datagram to a Unix socket, in the form of sd_notify(3). Agents that nobody wants to
/// hear of have none.
///
/// Thread: the one that starts the agent and runs its event loop.
/// Errors: a manager that cannot be told is logged, once until it can be told again. find() throws
///         std::bad_alloc.
class ServiceManager {
 public:
  static ServiceManager& process();

  /// Reads NOTIFY_SOCKET and WATCHDOG_USEC from the environment. Before the modules, which may
  /// change that.
  void find();

  // These wait up to a second for a manager that takes nothing.
  void tellReady() noexcept;
  void tellReloading() noexcept;
  void tellStopping() noexcept;

  // These do not wait: they come again and again.
  /// That the agent is alive.
  void feedWatchdog() noexcept;
  /// One line for who asks the manager how the agent is.
  void tellStatus(const std::string& status) noexcept;

  /// How long the manager waits for feedWatchdog() before it ends the agent; nothing when it does
  /// not wait.
  std::optional<std::chrono::microseconds> patience() const { return patience_; }

 private:
  ServiceManager() = default;

  void findPatience();
  /// Tells what `lines()` gives, which is not called without a manager. `flags`: of send().
  template <class Lines>
  void tell(int flags, Lines lines) noexcept;
  /// An errno value; 0 when the datagram is on its way.
  int send(const std::string& lines, int flags) const;
  void logSilence(const std::string& lines, int error);

  std::string socket_;  ///< empty without a manager
  std::optional<std::chrono::microseconds> patience_;
  bool isSilent_ = false;
};

}  // namespace qov

#endif
