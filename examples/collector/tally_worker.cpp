#include "examples/collector/tally_worker.h"

#include <memory>

#include "examples/common/messages.h"

namespace devagent {
namespace {

void appendTally(CQOV_MsgPackage& answer, const Tally& tally) {
  CTLVRecordV3& record = answer.addRecord(kTallyRecord);
  record.addUnsigned(kRounds, tally.rounds);
  record.addUnsigned(kSent, tally.sent);
  record.addUnsigned(kAnswered, tally.answered);
  record.addUnsigned(kTimedOut, tally.timedOut);
  record.addUnsigned(kRecordsReceived, tally.recordsReceived);
  record.addUnsigned(kRecordsSent, tally.recordsSent);
  record.addUnsigned(kInterfaces, tally.interfaces);
  record.addUnsigned(kFileSystems, tally.fileSystems);
}

}  // namespace

TallyWorker::TallyWorker(CQOV_TaskMgr* module, const Collection& collection)
    : CQOV_CommonTask(module), collection_(collection) {}

int TallyWorker::handleMessage(CQOV_MsgPackage& request) {
  if (request.head().type_ != QOVMsgHead::kRequest || request.head().opc_ != kReadTally) {
    return 0;
  }
  std::unique_ptr<CQOV_MsgPackage> answer = CreateQovRspPackage(request);
  if (!answer) {
    return -1;
  }
  collection_.appendHost(*answer);
  appendTally(*answer, collection_.tally());
  return send(answer.release(), nullptr, true);
}

}  // namespace devagent
