#ifndef QOV_TASK_SEND_CAUSE_H
#define QOV_TASK_SEND_CAUSE_H

#include <qovpub/qov_request.h>

#include <cerrno>

namespace qov {

/// What send() says in errno for the errno of a queue or a loader that refused its message.
inline int sendCauseOf(int refusal) {
  switch (refusal) {
    case EWOULDBLOCK:
      return ENOBUFS;
    case ESHUTDOWN:
      return ECONNABORTED;
    default:
      return refusal;
  }
}

/// The reason for what send() leaves in errno.
inline QOVReason reasonOf(int cause) {
  switch (cause) {
    case ETIMEDOUT:
      return QOVReason::kTimedOut;
    case EHOSTUNREACH:
      return QOVReason::kNoReceiver;
    case ENOBUFS:
      return QOVReason::kNoRoom;
    case ECONNABORTED:
      return QOVReason::kStopped;
    case ENOMEM:
      return QOVReason::kNoMemory;
    case EBUSY:
      return QOVReason::kBusy;
    default:
      return QOVReason::kInvalid;
  }
}

}  // namespace qov

#endif
