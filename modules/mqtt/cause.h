#ifndef QOV_MODULES_MQTT_CAUSE_H
#define QOV_MODULES_MQTT_CAUSE_H

#include <string>

namespace qov::mqtt {

/// Why something was refused or failed, and what an operator does about it, for the log.
struct Cause {
  std::string why;
  std::string whatToDo;
  bool isBadPacket = false;  ///< what the broker has sent cannot be read

  std::string text() const { return why + "; " + whatToDo; }
};

/// Of an MQTT reason code, 128 or more.
Cause causeOfReason(int reason);

/// Of a result of libmosquitto. `system` is errno of the call, `library` the first error
/// that it has logged, or empty.
Cause causeOfResult(int result, int system, const std::string& library);

}  // namespace qov::mqtt

#endif
