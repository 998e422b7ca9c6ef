#include "examples/journal/journal_worker.h"

#include <qovpub/qov_log.h>

#include <chrono>
#include <cinttypes>
#include <sstream>

#include "examples/common/messages.h"

namespace devagent {
namespace {

const char* nameOf(std::uint8_t module) {
  switch (module) {
    case kInventory:
      return "inventory";
    case kCollector:
      return "collector";
    case kUplink:
      return "uplink";
    default:
      return "another module";
  }
}

std::string describe(const CTLVRecordV3& host, const CTLVRecordV3& tally) {
  std::ostringstream text;
  text << "round " << tally.getUnsigned(kRounds) << ": requests sent " << tally.getUnsigned(kSent)
       << ", answered " << tally.getUnsigned(kAnswered) << ", timed out "
       << tally.getUnsigned(kTimedOut) << "; records received "
       << tally.getUnsigned(kRecordsReceived) << ", sent by the inventory "
       << tally.getUnsigned(kRecordsSent) << "; interfaces " << tally.getUnsigned(kInterfaces)
       << ", file systems " << tally.getUnsigned(kFileSystems) << "; host "
       << host.getString(kHostName) << ", " << host.getString(kKernel) << ", up "
       << host.getUnsigned(kUptimeSeconds) << " s, " << host.getUnsigned(kProcessors) << " CPUs";
  return text.str();
}

}  // namespace

JournalWorker::JournalWorker(CQOV_TaskMgr* module, EntryCount& entries)
    : QOVHandlers(module, {{kWriteEntry, &JournalWorker::writeEntry},
                           {kRoundFinished, &JournalWorker::writeRound}}),
      entries_(entries) {}

int JournalWorker::writeEntry(CQOV_MsgPackage& message) {
  write(message.head(), std::string(message[0].getString(kEntryText)));
  return 0;
}

int JournalWorker::writeRound(CQOV_MsgPackage& message) {
  write(message.head(), describeRound());
  return 0;
}

std::string JournalWorker::describeRound() {
  const QOVAnswer answer = QOVRequest(*this, kCollector, kReadTally).ask(std::chrono::seconds(20));
  return answer ? describe((*answer)[0], (*answer)[1]) : "the collector does not answer";
}

void JournalWorker::write(const QOVMsgHead& head, const std::string& text) {
  QOV_GUARD(guard, kJournal);
  QOV_INFO(guard, 1, "entry %" PRIu64 ", %s from %s: %s", ++entries_,
           head.type_ == QOVMsgHead::kNotice ? "notice" : "event", nameOf(head.smid_),
           text.c_str());
}

}  // namespace devagent
