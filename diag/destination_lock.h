#ifndef QOV_DIAG_DESTINATION_LOCK_H
#define QOV_DIAG_DESTINATION_LOCK_H

#include <ace/Log_Msg.h>

namespace qov {

/// ACE's lock around the destinations of logging, which ACE holds while it writes a record. It is
/// recursive, and one for the process.
class DestinationLock {
 public:
  explicit DestinationLock(ACE_Log_Msg& log = *ACE_Log_Msg::instance()) : log_(log) {
    log_.acquire();
  }
  ~DestinationLock() { log_.release(); }
  DestinationLock(const DestinationLock&) = delete;
  DestinationLock& operator=(const DestinationLock&) = delete;

 private:
  ACE_Log_Msg& log_;
};

}  // namespace qov

#endif
