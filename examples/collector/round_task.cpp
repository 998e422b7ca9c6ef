#include "examples/collector/round_task.h"

#include <qovpub/qov_log.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>

namespace devagent {
namespace {

constexpr std::chrono::seconds kAnswerTime(20);
// Short, since it always runs out.
constexpr std::chrono::milliseconds kNoAnswerTime(500);

/// Whether a request came to its end as requests do.
bool isEnded(QOVReason reason) {
  return reason == QOVReason::kNone || reason == QOVReason::kRefused ||
         reason == QOVReason::kTimedOut;
}

}  // namespace

RoundTask::RoundTask(CQOV_TaskMgr* module, Collection& collection)
    : QOVStaticHandlers(module, {{kRunRound, &RoundTask::serveRound}}), collection_(collection) {}

int RoundTask::serveRound(CQOV_MsgPackage&, CQOV_MsgPackage&) {
  if (runRound()) {
    finishRound();
  }
  return 0;
}

bool RoundTask::runRound() {
  for (Operation operation : {kReadHost, kReadInterfaces, kReadFileSystems}) {
    if (!collect(operation, kAnswerTime)) {
      return false;
    }
  }
  if (tally_.rounds == 0 && !collect(kReadNothing, kNoAnswerTime)) {
    return false;
  }
  return askInventoryTally();
}

bool RoundTask::collect(Operation operation, QOVRequest::Duration timeout) {
  QOVAnswer answer = ask(operation, timeout);
  if (answer) {
    tally_.recordsReceived += collection_.keep(answer.take());
  }
  return isEnded(answer.reason());
}

bool RoundTask::askInventoryTally() {
  const QOVAnswer answer = ask(kReadTally, kAnswerTime);
  if (answer) {
    tally_.recordsSent = (*answer)[0].getUnsigned(kRecordsSent);
  }
  return isEnded(answer.reason());
}

QOVAnswer RoundTask::ask(Operation operation, QOVRequest::Duration timeout) {
  ++tally_.sent;
  QOVAnswer answer = QOVRequest(*this, kInventory, operation).ask(timeout);
  if (answer || answer.reason() == QOVReason::kRefused) {
    ++tally_.answered;
  } else if (answer.reason() == QOVReason::kTimedOut) {
    noteTimeout(operation);
  }
  return answer;
}

void RoundTask::noteTimeout(Operation operation) {
  ++tally_.timedOut;
  char text[64];
  std::snprintf(text, sizeof text, "operation 0x%" PRIx64 " timed out",
                static_cast<std::uint64_t>(operation));
  writeEntry(*this, QOVMsgHead::kEvent, text);
}

void RoundTask::finishRound() {
  QOV_GUARD(guard, kCollector);
  ++tally_.rounds;
  tally_.interfaces = collection_.recordsOf(kReadInterfaces);
  tally_.fileSystems = collection_.recordsOf(kReadFileSystems);
  collection_.publish(tally_);
  QOV_INFO(guard, 1, "round %" PRIu64 " finished", tally_.rounds);
  QOVRequest(*this, kJournal, kRoundFinished).tell();
}

}  // namespace devagent
