#include <ace/Log_Msg.h>

#include <cerrno>

#include "platform/guard_time.h"
#include "platform/overdue_watch.h"
#include "qovplatform/platform_guard.h"

using qov::platform::guardNow;
using qov::platform::OverdueWatch;
using qov::platform::ThreadSlots;
using std::chrono::nanoseconds;

FowGuard::FowGuard(unsigned kind, unsigned level, unsigned seconds)
    : kind_(kind), level_(level), seconds_(seconds), slot_(nullptr) {
  if (seconds_ == 0) {
    return;
  }
  const nanoseconds limit = qov::platform::guardTime(seconds_);
  deadline_ = guardNow() + limit;
  ThreadSlots* mine = ThreadSlots::mine();
  slot_ = mine != nullptr ? mine->freeSlot() : nullptr;
  if (slot_ != nullptr) {
    slot_->open(deadline_.count(), {kind_, level_, seconds_, ACE_LOG_MSG->msg_ostream()});
    OverdueWatch::instance().cover(limit.count());
  }
}

FowGuard::~FowGuard() {
  const bool alreadyLogged = slot_ != nullptr && slot_->close();
  if (seconds_ != 0 && !alreadyLogged && guardNow() >= deadline_) {
    const int error = errno;
    qov::platform::logClosedLate({kind_, level_, seconds_, nullptr});
    errno = error;
  }
}
