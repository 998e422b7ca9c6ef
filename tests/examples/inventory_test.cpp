#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_testkit.h>

#include <memory>
#include <string>

#include "examples/common/messages.h"
#include "examples/inventory/inventory_worker.h"

namespace devagent {
namespace {

class Inventory : public ::testing::Test {
 protected:
  QOVAnswer ask(Operation operation) {
    CQOV_MsgPackage request = kit_.message(operation, QOVMsgHead::kRequest, kCollector);
    return kit_.ask(worker_, request);
  }

  /// What was sent last.
  std::string journalEntry() const {
    const CQOV_MsgPackage& entry = *kit_.sent().back();
    EXPECT_EQ(entry.head().rmid_, kJournal);
    EXPECT_EQ(entry.head().opc_, kWriteEntry);
    return std::string(entry[0].getString(kEntryText));
  }

  QOVTestKit kit_{kInventory};
  InventoryWorker::Shared shared_;
  InventoryWorker worker_{kit_.module(), shared_};
};

TEST_F(Inventory, AnswersAboutTheHostAndTellsTheJournal) {
  const QOVAnswer answer = ask(kReadHost);

  ASSERT_TRUE(answer) << answer.text();
  EXPECT_FALSE((*answer)[0].getString(kHostName).empty());
  EXPECT_EQ(journalEntry(), "operation 0x1001 answered, 1 records");
}

TEST_F(Inventory, CountsWhatItHasSentToTheOneThatAsks) {
  ask(kReadHost);
  ask(kReadHost);
  const QOVAnswer answer = ask(kReadTally);

  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)[0].getUnsigned(kRecordsSent), 2U);
}

TEST_F(Inventory, LeavesWhatItDoesNotKnowUnanswered) {
  EXPECT_EQ(ask(kReadNothing).reason(), QOVReason::kTimedOut);
  EXPECT_EQ(journalEntry(), "operation 0x10ff left unanswered, 0 records");
}

TEST_F(Inventory, CountsNothingThatItCouldNotSend) {
  kit_.fail(kCollector, kReadHost, QOVReason::kNoRoom);
  EXPECT_FALSE(ask(kReadHost));
  kit_.answer(kCollector, kReadHost);

  EXPECT_EQ((*ask(kReadTally))[0].getUnsigned(kRecordsSent), 0U);
}

TEST_F(Inventory, KeepsATable) {
  auto table = std::make_unique<CT7QPackageV3>();
  table->addRecord(5);
  table->addRecord(5);
  table->addRecord(5);
  CQOV_OM_MsgPackage request(table.release());
  kit_.address(request, kTakeTable, QOVMsgHead::kRequest, kUplink);

  const QOVAnswer answer = kit_.ask(worker_, request);

  ASSERT_TRUE(answer) << answer.text();
  EXPECT_EQ((*answer)[0].getUnsigned(kTablesTaken), 1U);
  EXPECT_EQ((*answer)[0].getUnsigned(kRowsTaken), 2U);
}

TEST_F(Inventory, TakesNoMessageForATable) {
  EXPECT_EQ(ask(kTakeTable).reason(), QOVReason::kTimedOut);
}

}  // namespace
}  // namespace devagent
