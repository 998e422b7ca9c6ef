#ifndef QOV_DIAG_COMPLAINTS_H
#define QOV_DIAG_COMPLAINTS_H

#include <string>
#include <string_view>

#include "diag/log_level.h"

namespace qov {

/// Hears what its own thread logs as an error through any kit, and as a warning through the public
/// one, from construction to destruction. There is one of these on a thread.
///
/// Thread: the one that made it; heard() is called there.
/// Owns:   nothing.
/// Errors: what heard() throws is dropped.
class Complaints {
 public:
  Complaints();
  virtual ~Complaints();
  Complaints(const Complaints&) = delete;
  Complaints& operator=(const Complaints&) = delete;

  /// A record with this message was written; `onStandardError` if that has it now.
  virtual void heard(std::string_view message, bool onStandardError) = 0;

  /// Tells the calling thread's object, if it has one, of a record.
  static void tell(const LogLevel& level, const std::string& kitName, std::string_view message,
                   bool onStandardError);
};

}  // namespace qov

#endif
