#ifndef QOV_TASK_WAITING_REQUESTS_H
#define QOV_TASK_WAITING_REQUESTS_H

#include <qovpub/qov_activity.h>
#include <qovpub/qov_msg_head.h>

#include <chrono>
#include <mutex>
#include <vector>

#include "task/age_list.h"

class ACE_Time_Value;

namespace qov {

/// The requests of a module whose senders wait for answers, for QOVActivity.
///
/// Thread: any.
/// Owns:   nothing: each entry stands where the wait does.
class WaitingRequests {
 public:
  /// A request as long as its sender waits.
  class Entry : public AgeList<Entry>::Link {
   public:
    using Clock = std::chrono::steady_clock;

    /// `thread` waits; 0 for none. A `timeout` of zero is none.
    Entry(WaitingRequests& all, const QOVMsgHead& request, const ACE_Time_Value& timeout,
          int thread);
    ~Entry();

    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    Clock::time_point begin() const { return begin_; }

   private:
    friend class WaitingRequests;

    WaitingRequests& all_;
    QOVWaitingRequest request_;
    const Clock::time_point begin_;
  };

  WaitingRequests() = default;
  WaitingRequests(const WaitingRequests&) = delete;
  WaitingRequests& operator=(const WaitingRequests&) = delete;

  /// Appends them, the oldest first, as those of `moduleId`.
  void list(unsigned int moduleId, std::vector<QOVWaitingRequest>& requests) const;

 private:
  mutable std::mutex mutex_;
  // Guarded by mutex_.
  AgeList<Entry> entries_;
};

}  // namespace qov

#endif
