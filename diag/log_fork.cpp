// A child of a process whose threads log may log, too. fork() takes along the calling thread only,
// so a lock that another one holds just then would stay locked in the child for good. This takes
// all locks of logging before each fork and makes them free again on both sides. What the child
// cannot have for itself it goes without: the C library's local time, the file's position.

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <limits.h>
#include <pthread.h>
#include <sys/single_threaded.h>

#include <optional>

#include "diag/folding.h"
#include "diag/kit_registry.h"
#include "diag/log_end.h"
#include "diag/log_sink.h"
#include "diag/record_time.h"

namespace qov {

namespace {

/// The calling thread's, while it holds the locks for a fork; otherwise null.
thread_local ACE_Log_Msg* held = nullptr;
/// Meanwhile: ACE takes its lock away only when nothing is under way any more.
thread_local std::optional<RecordUnderWay> forkUnderWay;
/// ACE's own backend of that time: the child cannot ask for it. Guarded by ACE's log lock.
ACE_Log_Msg_Backend* backend = nullptr;

/// ACE's lock first: a logging destination, for which ACE holds it, may look for kits.
void holdLocks() {
  if (__libc_single_threaded != 0) {
    tellAllCounts();
    return;
  }
  forkUnderWay.emplace();
  held = forkUnderWay->mayGo() ? ACE_Log_Msg::instance() : nullptr;
  if (held == nullptr) {
    forkUnderWay.reset();
    return;
  }
  held->acquire();
  tellAllCounts();
  KitRegistry::acquireLocks();
  backend = ACE_Log_Msg::msg_backend();
  noteUtcOffset();
}

void releaseInParent() {
  if (held == nullptr) {
    return;
  }
  KitRegistry::releaseLocks();
  held->release();
  held = nullptr;
  forkUnderWay.reset();
}

/// Under which key the calling thread has `log`. ACE keeps the key of its log objects to itself,
/// but the object that stands there tells which one it is.
std::optional<pthread_key_t> keyOf(const ACE_Log_Msg* log) {
  for (pthread_key_t key = 0; log != nullptr && key < PTHREAD_KEYS_MAX; ++key) {
    if (pthread_getspecific(key) == log) {
      return key;
    }
  }
  return std::nullopt;
}

/// Puts `next` where the calling thread has `present`.
void replaceLog(const ACE_Log_Msg* present, ACE_Log_Msg* next) {
  if (const std::optional<pthread_key_t> key = keyOf(present)) {
    pthread_setspecific(*key, next);
  }
}

/// The child cannot release ACE's lock, which is recursive and belongs to the parent's thread, by
/// its number. So ACE makes a new one. The thread keeps its log object meanwhile: callers have
/// pointers to it.
void renewLockOfAce(ACE_Log_Msg* own) {
  // pthread refuses this unlock, the thread number is the parent's. ThreadSanitizer would report a
  // held lock being destroyed without it.
  own->release();
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
  LogSink::process().openFileAnew();
  if (held == nullptr) {
    return;
  }
  keepUtcOffset();
  KitRegistry::releaseLocks();
  renewLockOfAce(held);
  held = nullptr;
  forkUnderWay.reset();
  RecordUnderWay::forgetAll();
}

/// While the library is loaded, and therefore before anyone else whose handlers log: handlers of
/// before a fork run in the reverse order.
const int registered = pthread_atfork(&holdLocks, &releaseInParent, &renewInChild);

}  // namespace

}  // namespace qov
