#include <new>

#include "tests/diag/process_root.h"
#include "tests/link/link_fixture.h"
#include "tests/support/failing_allocations.h"

using ::testing::ElementsAre;

namespace qov::test {
namespace {

using tests::Bytes;

constexpr unsigned int kBufferSize = 2097152;
constexpr unsigned int kUint = 3;

/// A table of three rows, each asked for with the one before it.
void answersTable(PeerConnection& connection) {
  constexpr std::size_t kKey = 28 + 10 + 4;
  for (;;) {
    const Message request = connection.request();
    const unsigned int row = request.size() > kKey ? request[kKey] : 0U;
    connection.send(answerTo(request, row == 3
                                          ? recordBytes(7, 1)
                                          : Bytes().record(7, 5).cell(1, kUint, 1).u8(row + 1)));
  }
}

class NoMemory : public LinkTest {
 protected:
  static constexpr std::size_t kConnections = 500;

  NoMemory() {
    plays(std::vector<ScriptedPeer::Script>(kConnections, answersTable));
    log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  }
};

TEST_F(NoMemory, ToReceiveInIsAskedForAgain) {
  {
    const auto failing = FailingAllocations::ofSize(kBufferSize);
    connects();
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(sends(), 0U);
}

TEST_F(NoMemory, ToReceiveInIsAFailureToReceive) {
  const auto failing = FailingAllocations::ofSize(kBufferSize, 0, 3);
  connects();
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  EXPECT_EQ(sends(), kSocketFailed);
  const char* const head = "It failed to receive v3 message head!";
  const char* const why = "Failed to receive V3 message, error is Cannot allocate memory";
  EXPECT_THAT(causes(), ElementsAre(head, why, head, why));
  EXPECT_EQ(sends(), 0U);
}

TEST_F(NoMemory, AnywhereInTheMakingOfAConfiguredLinkIsNoException) {
  // Before there is a connection: where there is none, the reason is put into words, too.
  const ScriptedPeer nobody;
  ProcessRoot::configure("[MMT]\nMMT_ADDR=" + nobody.address() + "\n");
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  bool failed = true;
  for (long count = 0; failed; ++count) {
    const auto failing = FailingAllocations::ofThoseThatThrow(count);
    EXPECT_NO_THROW(CQOVLongSocket());
    failed = failing.hasFailed();
  }
}

TEST_F(NoMemory, ToEncodeIsReported) {
  connects();
  {
    const auto failing = FailingAllocations::ofArraysThatGiveNull(38);
    EXPECT_EQ(sends(), kNotEncoded);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(sends(), 0U);
}

/// A table of `rows` rows.
ScriptedPeer::Script answersRows(unsigned int rows) {
  return [rows](PeerConnection& connection) {
    for (unsigned int i = 0; i < rows; ++i) {
      connection.answer(Bytes().record(7, 8).cell(1, kUint, 4).u32(i));
    }
    connection.answer(recordBytes(7, 1));
  };
}

/// Says how much memory is held while it sends its last request.
class Weighed : public TestLink {
 public:
  using TestLink::TestLink;
  unsigned int sendMsg_i(const unsigned char* data, unsigned int length) override {
    held = heldBytes();
    return TestLink::sendMsg_i(data, length);
  }
  long held = 0;
};

class WalkMemory : public LinkTest {
 protected:
  WalkMemory() { log.log().priority_mask(0, ACE_Log_Msg::PROCESS); }
};

TEST_F(WalkMemory, IsThatOfTheRecordsOnly) {
  plays({answersRows(2000)});
  Weighed weighed(peer.port());
  const long before = heldBytes();
  EXPECT_EQ(weighed.sendGetNextMsgV3(&package), 0U);
  EXPECT_EQ(package.count(), 2001U);
  // The last request and the answer before it are small.
  EXPECT_LT(weighed.held - heldBytes(), 4000);
  package.clear();
  EXPECT_LT(heldBytes() - before, 4000);
}

TEST_F(WalkMemory, IsTakenAsOftenForEachRow) {
  const auto allocationsFor = [](unsigned int rows) {
    ScriptedPeer table({answersRows(rows)});
    TestLink toIt(table.port());
    CT7QPackageV3 asked;
    asked.addRecord(7);
    const long before = allocations();
    EXPECT_EQ(toIt.sendGetNextMsgV3(&asked), 0U);
    return allocations() - before;
  };
  const long few = allocationsFor(200);
  EXPECT_GT(few, 200);
  EXPECT_LE(allocationsFor(400), 2 * few);
}

TEST_F(NoMemory, AnywhereInAWalkLeavesTheLinkUsable) {
  connects();
  bool failed = true;
  for (long count = 0; failed; ++count) {
    CT7QPackageV3 asked;
    asked.addRecord(1);
    unsigned int result = 0;
    bool thrown = false;
    {
      const FailingAllocations failing(count);
      try {
        result = link->sendGetNextMsgV3(&asked);
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
      failed = failing.hasFailed();
    }
    EXPECT_EQ(result == 0 && !thrown, !failed) << count;
    EXPECT_EQ(asked.count() == 4, !failed) << count;
    CT7QPackageV3 other;
    EXPECT_EQ(link->sendMsg(&other), 0U);
  }
}

}  // namespace
}  // namespace qov::test
