#ifndef QOV_EXAMPLES_INVENTORY_INVENTORY_WORKER_H
#define QOV_EXAMPLES_INVENTORY_INVENTORY_WORKER_H

#include <qovpub/qov_task.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "examples/inventory/taken_tables.h"

namespace devagent {

/// Answers requests for the machine's state, and keeps the tables that it is given.
///
/// Owns: nothing; what the workers share is the module's.
class InventoryWorker : public CQOV_CommonTask {
 public:
  struct Shared {
    /// Records about the machine that were sent, by the module that asked.
    std::array<std::atomic<std::uint64_t>, 256> recordsSentTo{};
    TakenTables tables;
  };

  InventoryWorker(CQOV_TaskMgr* module, Shared& shared);

  /// Answers a request with records, and tells the journal. An operation that it does not know it
  /// leaves unanswered: the requester sees a time-out.
  int handleMessage(CQOV_MsgPackage& request) override;

 private:
  bool fill(CQOV_MsgPackage& request, CQOV_MsgPackage& answer);
  bool takeTable(CQOV_MsgPackage& request, CQOV_MsgPackage& answer);
  int reply(std::unique_ptr<CQOV_MsgPackage> answer);
  void tellJournal(const CQOV_MsgPackage& request, bool answered, unsigned long records);

  Shared& shared_;
};

}  // namespace devagent

#endif
