// A child of a process whose threads log may log, too. fork() takes along the calling thread only,
// so a lock that another one holds just then would stay locked in the child for good. This takes
// all locks of logging before each fork and makes them free again on both sides.

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <pthread.h>
#include <sys/single_threaded.h>

#include <climits>

#include "diag/kit_locks.h"
#include "diag/log_end.h"
#include "diag/record_head.h"

namespace qov {

namespace {

/// The calling thread's, while it holds the locks for a fork; otherwise null.
thread_local ACE_Log_Msg* held = nullptr;
/// ACE's own backend of that time: the child cannot ask for it. Guarded by ACE's log lock.
ACE_Log_Msg_Backend* backend = nullptr;

/// In the order in which threads that log take them.
void holdLocks() {
  if (__libc_single_threaded != 0) {
    return;
  }
  held = ACE_Log_Msg::instance();
  if (held == nullptr) {
    return;
  }
  KitLocks::acquire();
  held->acquire();
  backend = ACE_Log_Msg::msg_backend();
  localTimeLock().lock();
}

void releaseInParent() {
  if (held == nullptr) {
    return;
  }
  localTimeLock().unlock();
  held->release();
  KitLocks::release();
  held = nullptr;
}

/// Puts `next` where the calling thread has `present`. ACE keeps the key of its log objects to
/// itself, but the object that stands there tells which one it is.
void replaceLog(const ACE_Log_Msg* present, ACE_Log_Msg* next) {
  for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key) {
    if (pthread_getspecific(key) == present) {
      pthread_setspecific(key, next);
      return;
    }
  }
}

/// The child cannot release ACE's lock, which is recursive and belongs to the parent's thread, by
/// its number. So ACE makes a new one. The thread keeps its log object meanwhile: callers have
/// pointers to it.
void renewLockOfAce(ACE_Log_Msg* own) {
  replaceLog(own, nullptr);
  closeAceLog();
  ACE_Log_Msg* const fresh = ACE_Log_Msg::instance();
  if (fresh != nullptr) {
    replaceLog(fresh, own);
    delete fresh;
  }
  ACE_Log_Msg::msg_backend(backend);
}

void renewInChild() {
  if (held == nullptr) {
    return;
  }
  localTimeLock().unlock();
  renewLockOfAce(held);
  KitLocks::release();
  RecordUnderWay::forgetAll();
  held = nullptr;
}

/// While the library is loaded, and therefore before anyone else whose handlers log: handlers of
/// before a fork run in the reverse order.
const int registered = pthread_atfork(&holdLocks, &releaseInParent, &renewInChild);

}  // namespace

}  // namespace qov
