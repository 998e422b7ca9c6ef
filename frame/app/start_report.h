#ifndef QOV_FRAME_APP_START_REPORT_H
#define QOV_FRAME_APP_START_REPORT_H

#include <string>
#include <string_view>

#include "diag/complaints.h"
#include "frame/app/start_page.h"

namespace qov {

/// Tells whoever starts the agent what goes wrong meanwhile: errors of all kits, warnings of the
/// library. In the foreground on standard error, unless the log goes there anyway; from a daemon on
/// its starter's standard error and, where its log goes nowhere, in the system's log. An exit() on
/// the way is told, too.
///
/// Thread: the one that made it; it hears no other.
/// Owns:   what a daemon shares with its starter.
/// Errors: none.
class StartReport : private Complaints {
 public:
  explicit StartReport(bool ofDaemon);
  /// A start that has not succeeded by now has failed.
  ~StartReport() override;

  /// Returns in the daemon, see qov::becomeDaemon().
  void becomeDaemon(const std::string& directory);

  /// Tells what no log has.
  void tell(std::string_view line) { heard(line, false, true); }

  /// Lets the starter of a daemon go.
  void succeeded();

 private:
  void heard(std::string_view message, bool onStandardError) override {
    heard(message, onStandardError, ofDaemon_ && onStandardError);
  }
  void heard(std::string_view message, bool onStandardError, bool nowhere);

  const bool ofDaemon_;
  StartPagePtr page_;  ///< in a daemon
};

}  // namespace qov

#endif
