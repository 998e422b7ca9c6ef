#include "examples/inventory/inventory_worker.h"

#include <qovpub/qov_common_debugkit.h>

#include <cinttypes>
#include <cstdio>
#include <utility>

#include "examples/common/messages.h"
#include "examples/inventory/state_records.h"

namespace devagent {

InventoryWorker::InventoryWorker(CQOV_TaskMgr* module, RecordCount& recordsSent)
    : CQOV_CommonTask(module), recordsSent_(recordsSent) {}

int InventoryWorker::handleMessage(CQOV_MsgPackage& request) {
  CQOVDebugKitGuard guard(kInventory, "int InventoryWorker::handleMessage(CQOV_MsgPackage&)");
  if (request.head().type_ != kRequest) {
    return 0;
  }
  std::unique_ptr<CQOV_MsgPackage> response = CreateQovRspPackage(request);
  if (!response) {
    return -1;
  }
  if (!fill(*response)) {
    guard.info(1, __FUNCTION__, __LINE__, "operation 0x%" PRIx64 " stays without an answer",
               request.head().opc_);
    tellJournal(request, false, 0);
    return 0;
  }
  const unsigned long records = response->count();
  const int result = reply(std::move(response));
  tellJournal(request, result == 0, records);
  return result;
}

bool InventoryWorker::fill(CQOV_MsgPackage& answer) {
  switch (answer.head().opc_) {
    case kReadHost:
      appendHost(answer);
      return true;
    case kReadInterfaces:
      appendInterfaces(answer);
      return true;
    case kReadFileSystems:
      appendFileSystems(answer);
      return true;
    case kReadTally:
      answer.addRecord(kTallyRecord).addUnsigned(kRecordsSent, recordsSent_);
      return true;
    default:
      return false;
  }
}

int InventoryWorker::reply(std::unique_ptr<CQOV_MsgPackage> answer) {
  const unsigned long records = answer->head().opc_ == kReadTally ? 0 : answer->count();
  // Counted first: the requester may have the answer, and ask for the count, before send() returns.
  recordsSent_ += records;
  const int result = send(answer.release(), nullptr, true);
  if (result != 0) {
    recordsSent_ -= records;
  }
  return result;
}

void InventoryWorker::tellJournal(const CQOV_MsgPackage& request, bool answered,
                                  unsigned long records) {
  char text[96];
  std::snprintf(text, sizeof text, "operation 0x%" PRIx64 " %s, %lu records", request.head().opc_,
                answered ? "answered" : "left unanswered", records);
  send(makeJournalEntry(answered ? kNotice : kEvent, kInventory, text).release(), nullptr, true);
}

}  // namespace devagent
