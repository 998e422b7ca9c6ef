#ifndef QOV_LINK_LINK_RECORD_H
#define QOV_LINK_LINK_RECORD_H

#include <qovpub/qov_link_stats.h>

#include <chrono>
#include <string>

namespace qov {

/// What a link tells of its connection, listed by getLinkStats() for as long as it lives.
///
/// Thread: the operations from the link's own thread, one at a time. Readers get copies. The lock
///         that they share is never held during a call of the system.
/// Errors: throws std::bad_alloc where it keeps a text.
class LinkRecord {
 public:
  explicit LinkRecord(const std::string& endpoint);
  ~LinkRecord();
  LinkRecord(const LinkRecord&) = delete;
  LinkRecord& operator=(const LinkRecord&) = delete;

  void connected();
  /// The link has closed its connection, if it had one.
  void disconnected() noexcept;
  /// An attempt to connect has failed.
  void failed(std::string cause);
  /// The connection has failed; nothing if there was none.
  void lost(std::string cause);

 private:
  friend std::vector<QOVLinkStats>(::getLinkStats)();

  using Clock = std::chrono::steady_clock;

  // Guarded by the lock of all records.
  QOVLinkStats stats_;
  Clock::time_point changed_;
};

}  // namespace qov

#endif
