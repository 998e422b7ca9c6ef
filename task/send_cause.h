#ifndef QOV_TASK_SEND_CAUSE_H
#define QOV_TASK_SEND_CAUSE_H

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

}  // namespace qov

#endif
