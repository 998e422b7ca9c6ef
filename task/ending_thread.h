#ifndef QOV_TASK_ENDING_THREAD_H
#define QOV_TASK_ENDING_THREAD_H

#include <exception>

namespace qov {

/// For handlers that catch everything: what a thread that is cancelled or calls pthread_exit() is
/// unwound by comes there, too, and is no exception. It goes on; swallowing it would abort the
/// process.
inline void passOnEndOfThread() {
  if (std::current_exception() == nullptr) {
    throw;
  }
}

}  // namespace qov

#endif
