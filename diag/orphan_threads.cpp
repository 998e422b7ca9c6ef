#include "diag/orphan_threads.h"

#include <ace/Log_Msg_Backend.h>

#include "diag/log_stream.h"

namespace qov {

namespace {

/// ACE calls its backend for each record, on the thread that logs, before it looks for that
/// thread's stream, and under its log lock. A stream that has failed would take nothing more; what
/// ours does with a record shows in its file, so its state says nothing.
class Adopter : public ACE_Log_Msg_Backend {
 public:
  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record&) override {
    OrphanThreads::adopt(*ACE_Log_Msg::instance());
    if (LogStream* const stream = LogStream::process()) {
      stream->clear();
    }
    return 0;
  }
};

Adopter& adopter() {
  static auto* const object = new Adopter;  // never freed: threads may log to the very end
  return *object;
}

}  // namespace

void OrphanThreads::adoptAll(ACE_Log_Msg& log) {
  if (hasForeignBackend()) {
    return;
  }
  ACE_Log_Msg::msg_backend(&adopter());
  log.set_flags(ACE_Log_Msg::CUSTOM);
}

bool OrphanThreads::hasForeignBackend() {
  const ACE_Log_Msg_Backend* const backend = ACE_Log_Msg::msg_backend();
  return backend != nullptr && backend != &adopter();
}

void OrphanThreads::adopt(ACE_Log_Msg& log) {
  if (log.msg_ostream() == nullptr) {
    log.msg_ostream(LogStream::process(), false);
  }
}

}  // namespace qov
