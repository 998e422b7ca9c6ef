#include <gtest/gtest.h>
#include <qovpub/qov_testkit.h>

#include <algorithm>
#include <chrono>

#include "examples/collector/collection.h"
#include "examples/collector/period_task.h"
#include "examples/collector/round_task.h"
#include "examples/collector/tally_worker.h"
#include "examples/common/messages.h"

namespace devagent {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class Collector : public ::testing::Test {
 protected:
  Collector() {
    inventoryAnswers(kReadHost, 1);
    inventoryAnswers(kReadInterfaces, 2);
    inventoryAnswers(kReadFileSystems, 3);
    kit_.fail(kInventory, kReadNothing, QOVReason::kTimedOut);
    kit_.answer(kInventory, kReadTally, [](const CQOV_MsgPackage&, CQOV_MsgPackage& answer) {
      answer.addRecord(kTallyRecord).addUnsigned(kRecordsSent, 6);
    });
  }

  void inventoryAnswers(Operation operation, int records) {
    kit_.answer(kInventory, operation,
                [records](const CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
                  for (int i = 0; i < records; ++i) {
                    answer.addRecord(request.head().opc_);
                  }
                });
  }

  QOVAnswer runRound() {
    CQOV_MsgPackage request = kit_.message(kRunRound, QOVMsgHead::kRequest, kCollector);
    return kit_.ask(rounds_, request);
  }

  long countSent(std::uint8_t module, std::uint64_t operation) const {
    const auto& sent = kit_.sent();
    return std::count_if(sent.begin(), sent.end(), [&](const auto& one) {
      return one->head().rmid_ == module && one->head().opc_ == operation;
    });
  }

  QOVTestKit kit_{kCollector};
  Collection collection_;
  RoundTask rounds_{kit_.module(), collection_};
};

TEST_F(Collector, ReadsTheInventoryInARound) {
  EXPECT_TRUE(runRound());

  const Tally tally = collection_.tally();
  EXPECT_EQ(tally.rounds, 1U);
  EXPECT_EQ(tally.sent, 5U);
  EXPECT_EQ(tally.answered, 4U);
  EXPECT_EQ(tally.recordsReceived, 6U);
  EXPECT_EQ(tally.recordsSent, 6U);
  EXPECT_EQ(tally.interfaces, 2U);
  EXPECT_EQ(tally.fileSystems, 3U);
  EXPECT_EQ(countSent(kJournal, kRoundFinished), 1);
}

TEST_F(Collector, TellsTheJournalOfATimeOut) {
  runRound();

  EXPECT_EQ(collection_.tally().timedOut, 1U);
  EXPECT_EQ(countSent(kJournal, kWriteEntry), 1);
  EXPECT_EQ(kit_.now(), milliseconds(500));
}

TEST_F(Collector, FinishesNoRoundWithoutTheInventory) {
  kit_.fail(kInventory, kReadInterfaces, QOVReason::kStopped);

  EXPECT_TRUE(runRound());
  EXPECT_EQ(collection_.tally().rounds, 0U);
  EXPECT_EQ(countSent(kJournal, kRoundFinished), 0);
}

TEST_F(Collector, GoesOnAfterARefusal) {
  kit_.refuse(kInventory, kReadInterfaces, 4);

  runRound();
  EXPECT_EQ(collection_.tally().rounds, 1U);
  EXPECT_EQ(collection_.tally().answered, 4U);
}

TEST_F(Collector, RunsARoundAtOnceAndInEveryPeriod) {
  kit_.answer(kCollector, kRunRound);
  PeriodTask period(kit_.module(), seconds(10));
  kit_.start(period);

  EXPECT_EQ(kit_.advance(seconds(25)), 3U);
  EXPECT_EQ(countSent(kCollector, kRunRound), 3);
}

TEST_F(Collector, ShowsItsTally) {
  runRound();
  TallyWorker worker(kit_.module(), collection_);
  CQOV_MsgPackage request = kit_.message(kReadTally, QOVMsgHead::kRequest, kJournal);

  const QOVAnswer answer = kit_.ask(worker, request);

  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)[1].getUnsigned(kRounds), 1U);
}

}  // namespace
}  // namespace devagent
