#include "examples/collector/tally_worker.h"

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
    : QOVHandlers(module, {{kReadTally, &TallyWorker::readTally}}), collection_(collection) {}

int TallyWorker::readTally(CQOV_MsgPackage&, CQOV_MsgPackage& answer) {
  collection_.appendHost(answer);
  appendTally(answer, collection_.tally());
  return 0;
}

}  // namespace devagent
