#ifndef QOV_EXAMPLES_JOURNAL_JOURNAL_WORKER_H
#define QOV_EXAMPLES_JOURNAL_JOURNAL_WORKER_H

#include <qovpub/qov_handlers.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace devagent {

/// Writes what notices and events say through the journal's own debug kit, each as a numbered
/// entry.
class JournalWorker : public QOVHandlers<JournalWorker> {
 public:
  using EntryCount = std::atomic<std::uint64_t>;

  JournalWorker(CQOV_TaskMgr* module, EntryCount& entries);

 private:
  int writeEntry(CQOV_MsgPackage& message);
  int writeRound(CQOV_MsgPackage& message);
  /// Asks the collector what it has got.
  std::string describeRound();
  void write(const QOVMsgHead& head, const std::string& text);

  EntryCount& entries_;
};

}  // namespace devagent

#endif
