#include "diag/folding.h"

#include <cassert>
#include <cerrno>
#include <ctime>
#include <new>
#include <string>

#include "diag/log_end.h"
#include "diag/log_ids.h"
#include "diag/log_output.h"
#include "diag/log_sink.h"
#include "diag/repeats.h"
#include "diag/uncancelled.h"

namespace qov {

namespace {

/// Guarded by the lock of LogSink.
Repeats repeats;

std::int64_t nowMs() {
  struct timespec now {};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

/// The record that tells a count. All of it has room where it is made.
class CountRecord : public Record {
 public:
  explicit CountRecord(const Repeats::Entry& entry) {
    beginLike(room_.data(), room_.size(), entry.origin(), log_id::kRepeats, entry.form);
    add(std::to_string(entry.count));
    add(" more of record ");
    add(entry.origin().substr(0, entry.origin().find_first_not_of("0123456789")));
    add(" within a second: ");
    add(entry.message());
    end();
  }

 private:
  std::array<char, Repeats::kLongest + 256> room_;  ///< not zeroed
};

/// The entry stays as it is when its count cannot be written for want of memory.
void tell(Repeats::Entry& entry) {
  if (entry.count != 0) {
    writeToProcess(CountRecord(entry).line());
  }
  entry.forget();
}

template <class IsMeant>
void tellEach(const IsMeant& isMeant) {
  for (Repeats::Entry& entry : repeats.entries()) {
    if (entry.isUsed() && isMeant(entry)) {
      tell(entry);
    }
  }
}

void tellDue(std::int64_t now) {
  tellEach([now](const Repeats::Entry& entry) { return entry.isOver(now); });
}

bool isAny(const Repeats::Entry&) {
  return true;
}

/// What cannot be told now is told later.
template <class Tell>
void withLock(const Tell& tell) noexcept {
  if (!LogForm::now().has(LogForm::kFold)) {
    return;
  }
  const int callersErrno = errno;
  const Uncancelled uncancelled;
  const RecordUnderWay underWay;
  ACE_Log_Msg* const log = underWay.mayGo() ? ACE_Log_Msg::instance() : nullptr;
  if (log != nullptr) {
    const LogSink::Lock lock(*log);
    try {
      tell();
    } catch (...) {
    }
  }
  errno = callersErrno;
}

}  // namespace

bool isFolded(const Record& record) {
  if (!LogForm::now().has(LogForm::kFold)) {
    return false;
  }
  const std::int64_t now = nowMs();
  tellDue(now);
  if (!record.isComplete() || Repeats::isTooLong(record)) {
    return false;
  }
  if (repeats.count(record)) {
    return true;
  }
  Repeats::Entry& entry = repeats.next();
  tell(entry);
  repeats.begin(entry, record, now);
  return false;
}

void tellDueCounts() noexcept {
  withLock([] { tellDue(nowMs()); });
}

void tellAllCounts() noexcept {
  withLock([] { tellEach(isAny); });
}

void tellCountsAtEnd() noexcept {
  // The thread that ends the process may be one that is to be cancelled.
  const Uncancelled uncancelled;
  try {
    tellEach([](const Repeats::Entry&) { return isWritable(); });
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace qov
