#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_testkit.h>

#include "examples/common/messages.h"
#include "examples/journal/journal_worker.h"

namespace devagent {
namespace {

using ::testing::HasSubstr;

class Journal : public ::testing::Test {
 protected:
  QOVTestKit kit_{kJournal};
  JournalWorker::EntryCount entries_{0};
  JournalWorker worker_{kit_.module(), entries_};
};

TEST_F(Journal, WritesWhatItIsTold) {
  CQOV_MsgPackage entry = kit_.message(kWriteEntry, QOVMsgHead::kNotice, kInventory);
  entry.addRecord(kEntryRecord).addString(kEntryText, "all is well");

  EXPECT_EQ(kit_.handle(worker_, entry), 0);
  EXPECT_THAT(kit_.process().log(), HasSubstr("entry 1, notice from inventory: all is well"));
}

TEST_F(Journal, AsksTheCollectorAboutARound) {
  kit_.answer(kCollector, kReadTally, [](const CQOV_MsgPackage&, CQOV_MsgPackage& answer) {
    answer.addRecord(kHostRecord)
        .addString(kHostName, "box")
        .addString(kKernel, "Linux")
        .addUnsigned(kUptimeSeconds, 5)
        .addUnsigned(kProcessors, 2);
    CTLVRecordV3& tally = answer.addRecord(kTallyRecord);
    for (const TallyTag tag : {kRounds, kSent, kAnswered, kTimedOut, kRecordsReceived, kRecordsSent,
                               kInterfaces, kFileSystems}) {
      tally.addUnsigned(tag, 10U + tag);
    }
  });
  CQOV_MsgPackage event = kit_.message(kRoundFinished, QOVMsgHead::kEvent, kCollector);

  EXPECT_EQ(kit_.handle(worker_, event), 0);
  EXPECT_THAT(kit_.process().log(),
              HasSubstr("event from collector: round 11: requests sent 12, answered 13"));
  EXPECT_THAT(kit_.process().log(), HasSubstr("host box, Linux, up 5 s, 2 CPUs"));
}

TEST_F(Journal, WritesThatTheCollectorDoesNotAnswer) {
  kit_.fail(kCollector, kReadTally, QOVReason::kTimedOut);
  CQOV_MsgPackage event = kit_.message(kRoundFinished, QOVMsgHead::kEvent, kCollector);

  EXPECT_EQ(kit_.handle(worker_, event), 0);
  EXPECT_THAT(kit_.process().log(), HasSubstr("the collector does not answer"));
  EXPECT_EQ(kit_.now(), std::chrono::seconds(20));
}

}  // namespace
}  // namespace devagent
