#ifndef QOV_DIAG_COMPLAINTS_H
#define QOV_DIAG_COMPLAINTS_H

#include <string>
#include <string_view>

#include "diag/log_level.h"

namespace qov {

/// Hears what its own thread logs as an error through any kit, and as a warning through the public
/// one, from construction to destruction, also where the level is off. There is one of these on a
/// thread.
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

  /// A record has this message; `onStandardError` if that shows it now.
  virtual void heard(std::string_view message, bool onStandardError) = 0;

  /// Whether the calling thread's object, if it has one, hears a record although its level is off.
  /// Critical ones are off for good.
  static bool hears(const LogLevel& level) {
    return (level.priority & (LM_WARNING | LM_ERROR)) != 0 && isListening();
  }

  /// `message` as it is before it is escaped, if the calling thread has an object; else empty.
  static std::string copyOf(std::string_view message) {
    return isListening() ? std::string(message) : std::string();
  }

  /// Tells the calling thread's object, if it has one, of a record.
  static void tell(const LogLevel& level, const std::string& kitName, std::string_view message,
                   bool onStandardError);

 private:
  static bool isListening();
};

}  // namespace qov

#endif
