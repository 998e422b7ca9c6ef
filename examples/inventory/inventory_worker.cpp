#include "examples/inventory/inventory_worker.h"

#include <qovpub/qov_log.h>
#include <qovpub/qov_om_message_package.h>

#include <cinttypes>
#include <cstdio>
#include <utility>

#include "examples/common/messages.h"
#include "examples/inventory/state_records.h"

namespace devagent {

namespace {

/// An answer about the inventory itself and not about the machine.
bool isTally(const CQOV_MsgPackage& answer) {
  return answer.head().opc_ == kReadTally || answer.head().opc_ == kTakeTable;
}

}  // namespace

InventoryWorker::InventoryWorker(CQOV_TaskMgr* module, Shared& shared)
    : CQOV_CommonTask(module), shared_(shared) {}

int InventoryWorker::handleMessage(CQOV_MsgPackage& request) {
  QOV_GUARD(guard, kInventory);
  if (request.head().type_ != QOVMsgHead::kRequest) {
    return 0;
  }
  std::unique_ptr<CQOV_MsgPackage> response = CreateQovRspPackage(request);
  if (!response) {
    return -1;
  }
  if (!fill(request, *response)) {
    QOV_INFO(guard, 1, "operation 0x%" PRIx64 " stays without an answer", request.head().opc_);
    tellJournal(request, false, 0);
    return 0;
  }
  const unsigned long records = response->count();
  const int result = reply(std::move(response));
  tellJournal(request, result == 0, records);
  return result;
}

bool InventoryWorker::fill(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
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
      answer.addRecord(kTallyRecord)
          .addUnsigned(kRecordsSent, shared_.recordsSentTo[answer.head().rmid_]);
      return true;
    case kTakeTable:
      return takeTable(request, answer);
    default:
      return false;
  }
}

/// What the message carries is kept: it comes out of it without being copied.
bool InventoryWorker::takeTable(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
  auto* const message = dynamic_cast<CQOV_OM_MsgPackage*>(&request);
  if (message == nullptr || message->get() == nullptr || message->get()->count() == 0) {
    return false;
  }
  const TakenTables::Tally taken =
      shared_.tables.take(std::unique_ptr<CT7QPackageV3>(message->release()));
  answer.addRecord(kTallyRecord)
      .addUnsigned(kTablesTaken, taken.tables)
      .addUnsigned(kRowsTaken, taken.rows);
  return true;
}

int InventoryWorker::reply(std::unique_ptr<CQOV_MsgPackage> answer) {
  const unsigned long records = isTally(*answer) ? 0 : answer->count();
  std::atomic<std::uint64_t>& sent = shared_.recordsSentTo[answer->head().rmid_];
  // Counted first: the requester may have the answer, and ask for the count, before send() returns.
  sent += records;
  const int result = send(answer.release(), nullptr, true);
  if (result != 0) {
    sent -= records;
  }
  return result;
}

void InventoryWorker::tellJournal(const CQOV_MsgPackage& request, bool answered,
                                  unsigned long records) {
  char text[96];
  std::snprintf(text, sizeof text, "operation 0x%" PRIx64 " %s, %lu records", request.head().opc_,
                answered ? "answered" : "left unanswered", records);
  writeEntry(*this, answered ? QOVMsgHead::kNotice : QOVMsgHead::kEvent, text);
}

}  // namespace devagent
