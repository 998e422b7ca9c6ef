#include "examples/collector/round_task.h"

#include <qovpub/qov_common_debugkit.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <utility>

namespace devagent {
namespace {

constexpr double kAnswerSeconds = 20;
// Short, since it always runs out.
constexpr double kNoAnswerSeconds = 0.5;
// A timer may fire this much before its time.
constexpr double kTimerSlackSeconds = 0.1;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

RoundTask::RoundTask(CQOV_TaskMgr* module, Collection& collection)
    : CQOV_StaticSchecheduledTask(module), collection_(collection) {}

void RoundTask::getOpcList(std::list<unsigned long long>& opcs) {
  opcs.push_back(kRunRound);
}

int RoundTask::handleMessage(CQOV_MsgPackage& request) {
  if (runRound()) {
    finishRound();
  }
  return send(CreateQovRspPackage(request).release(), nullptr, true);
}

bool RoundTask::runRound() {
  for (Operation operation : {kReadHost, kReadInterfaces, kReadFileSystems}) {
    if (!collect(operation, kAnswerSeconds)) {
      return false;
    }
  }
  if (tally_.rounds == 0 && !collect(kReadNothing, kNoAnswerSeconds)) {
    return false;
  }
  return askInventoryTally();
}

bool RoundTask::collect(Operation operation, double timeoutSeconds) {
  bool ended = false;
  std::unique_ptr<CQOV_MsgPackage> answer = ask(operation, timeoutSeconds, ended);
  if (answer) {
    tally_.recordsReceived += collection_.keep(std::move(answer));
  }
  return ended;
}

bool RoundTask::askInventoryTally() {
  bool ended = false;
  const std::unique_ptr<CQOV_MsgPackage> answer = ask(kReadTally, kAnswerSeconds, ended);
  if (answer) {
    tally_.recordsSent = (*answer)[0].getUnsigned(kRecordsSent);
  }
  return ended;
}

std::unique_ptr<CQOV_MsgPackage> RoundTask::ask(Operation operation, double timeoutSeconds,
                                                bool& ended) {
  ACE_Time_Value timeout;
  timeout.set(timeoutSeconds);
  CQOV_MsgPackage* response = nullptr;
  const auto start = std::chrono::steady_clock::now();
  ++tally_.sent;
  const int result = send(makeMessage(kRequest, kCollector, kInventory, operation).release(),
                          response, &timeout, true);
  if (result >= 0) {
    ++tally_.answered;
    ended = true;
  } else if (secondsSince(start) + kTimerSlackSeconds >= timeoutSeconds) {
    noteTimeout(operation);
    ended = true;
  }
  return std::unique_ptr<CQOV_MsgPackage>(response);
}

void RoundTask::noteTimeout(Operation operation) {
  ++tally_.timedOut;
  char text[64];
  std::snprintf(text, sizeof text, "operation 0x%" PRIx64 " timed out",
                static_cast<std::uint64_t>(operation));
  send(makeJournalEntry(kEvent, kCollector, text).release(), nullptr, true);
}

void RoundTask::finishRound() {
  CQOVDebugKitGuard guard(kCollector, "void RoundTask::finishRound()");
  ++tally_.rounds;
  tally_.interfaces = collection_.recordsOf(kReadInterfaces);
  tally_.fileSystems = collection_.recordsOf(kReadFileSystems);
  collection_.publish(tally_);
  guard.info(1, __FUNCTION__, __LINE__, "round %" PRIu64 " finished", tally_.rounds);
  send(makeMessage(kNotice, kCollector, kJournal, kRoundFinished).release(), nullptr, true);
}

}  // namespace devagent
