#ifndef QOV_EXAMPLES_INVENTORY_INVENTORY_WORKER_H
#define QOV_EXAMPLES_INVENTORY_INVENTORY_WORKER_H

#include <qovpub/qov_task.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace devagent {

/// Answers requests for the machine's state.
///
/// Owns: nothing; the count of records sent is the module's, and all workers share it.
class InventoryWorker : public CQOV_CommonTask {
 public:
  using RecordCount = std::atomic<std::uint64_t>;

  InventoryWorker(CQOV_TaskMgr* module, RecordCount& recordsSent);

  /// Answers a request with records, and tells the journal. An operation that it does not know it
  /// leaves unanswered: the requester sees a time-out.
  int handleMessage(CQOV_MsgPackage& request) override;

 private:
  bool fill(CQOV_MsgPackage& answer);
  int reply(std::unique_ptr<CQOV_MsgPackage> answer);
  void tellJournal(const CQOV_MsgPackage& request, bool answered, unsigned long records);

  RecordCount& recordsSent_;
};

}  // namespace devagent

#endif
