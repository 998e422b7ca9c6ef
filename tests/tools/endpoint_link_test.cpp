#include <qovpub/qov_exception.h>

#include <thread>
#include <vector>

#include "tests/diag/log_capture.h"
#include "tests/link/link_fixture.h"
#include "tests/tools/endpoint_test.h"

namespace qov::test {
namespace {

constexpr unsigned int kBadReply = 16797698;
constexpr unsigned int kSocketFailed = 16797704;

/// What the link makes of each fault of a real endpoint.
class EndpointLink : public EndpointTest {
 protected:
  /// A link to an endpoint with the fault. It waits for an answer for an hour: what fails before
  /// has another reason.
  void connects(const std::vector<std::string>& arguments = {}) {
    TestLink::Limits limits;
    limits.reply.set(3600, 0);
    connects(arguments, limits);
  }
  /// The same, but it does not wait long.
  void connectsHasty(const std::string& fault) { connects({"--fault", fault}, shortReply()); }
  void connects(const std::vector<std::string>& arguments, const TestLink::Limits& limits) {
    starts(arguments);
    link = std::make_unique<TestLink>(endpoint.port(), limits);
  }

  /// The result of one exchange; asks for the first row of table 7.
  unsigned int exchange() {
    package.clear();
    package.addRecord(kGetNextOf + kThings);
    return link->sendMsg(&package);
  }
  unsigned int walk(std::uint32_t table = kThings) {
    package.clear();
    package.addRecord(kGetNextOf + table);
    return link->sendGetNextMsgV3(&package);
  }
  void expectRow() const {
    ASSERT_EQ(package.count(), 1U);
    EXPECT_EQ(package[0].getString(1), "first");
  }
  std::uint64_t key(unsigned long i) const { return package[i].getUnsigned(4093); }

  const LogCapture quiet_;
  std::unique_ptr<TestLink> link;
  CT7QPackageV3 package;
};

TEST_F(EndpointLink, WalksATable) {
  connects();
  EXPECT_EQ(walk(), 0U);
  ASSERT_EQ(package.count(), 3U);
  EXPECT_EQ(key(0), 2U);
  EXPECT_EQ(key(1), 300U);
  EXPECT_EQ(package[2].count(), 0U);
  EXPECT_EQ(counted(), "connections 1 requests 3 replies 3 rows 2 ends 1 stored 0 refusals 0");
}

TEST_F(EndpointLink, SendsAgainAfterOneCloseWithinTheHeadOrTheBody) {
  for (const char* after : {"0", "10", "30"}) {
    connects({"--fault", std::string("close:count=1,after=") + after});
    EXPECT_EQ(exchange(), 0U) << after;
    expectRow();
  }
  EXPECT_EQ(counted(), "connections 6 requests 6 replies 3 rows 3 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointLink, FailsWhenEachAttemptIsClosed) {
  for (const char* after : {"0", "10", "30"}) {
    connects({"--fault", std::string("close:count=2,after=") + after});
    EXPECT_EQ(exchange(), kSocketFailed) << after;
    EXPECT_EQ(package.count(), 0U);
    EXPECT_EQ(exchange(), 0U) << after;
  }
}

TEST_F(EndpointLink, SurvivesAConnectionThatIsClosedAtOnce) {
  connects({"--fault", "close:request=0,connection=1"});
  EXPECT_EQ(exchange(), 0U);
  expectRow();
}

TEST_F(EndpointLink, WaitsForADelayedAnswer) {
  connects({"--fault", "delay:seconds=0.05"});
  EXPECT_EQ(exchange(), 0U);
  expectRow();
}

TEST_F(EndpointLink, FailsOnAnAnswerThatIsTooLate) {
  connectsHasty("delay:seconds=3600");
  EXPECT_EQ(exchange(), kSocketFailed);
}

TEST_F(EndpointLink, TakesAnAnswerByteByByte) {
  connects({"--fault", "drip"});
  EXPECT_EQ(walk(), 0U);
  EXPECT_EQ(package.count(), 3U);
}

TEST_F(EndpointLink, WaitsForAnAnswerAsAWholeAndNotForEachByte) {
  // No pause is longer than the link waits, but all of them together are.
  connectsHasty("drip:seconds=0.02");
  EXPECT_EQ(exchange(), kSocketFailed);
}

TEST_F(EndpointLink, RefusesAnotherSerial) {
  connects({"--fault", "serial:request=1"});
  EXPECT_EQ(exchange(), kBadReply);
  EXPECT_EQ(package.count(), 0U);
  EXPECT_EQ(exchange(), 0U);
}

TEST_F(EndpointLink, HandsOnAResultWithItsRecords) {
  connects({"--fault", "ret:value=4711,count=1"});
  EXPECT_EQ(exchange(), 4711U);
  expectRow();
  EXPECT_EQ(walk(9), 2U) << "there is no table 9";
}

TEST_F(EndpointLink, RefusesALengthThatCutsACell) {
  connects({"--fault", "length:add=-3,fill=true"});
  EXPECT_EQ(exchange(), kBadReply);
}

TEST_F(EndpointLink, RefusesALengthWithBytesThatAreNoRecord) {
  connects({"--fault", "length:add=3,fill=true"});
  EXPECT_EQ(exchange(), kBadReply);
}

TEST_F(EndpointLink, WaitsInVainForALengthThatDoesNotCome) {
  connectsHasty("length:add=3");
  EXPECT_EQ(exchange(), kSocketFailed);
}

TEST_F(EndpointLink, TakesALengthOfZeroOrLessForNoBody) {
  for (const char* length : {"0", "-1", "-2147483648"}) {
    connects({"--fault", std::string("length:fill=true,value=") + length});
    const bool zero = length == std::string("0");
    EXPECT_EQ(exchange(), zero ? 0U : kBadReply) << "decoding takes the length for a large one";
    EXPECT_EQ(package.count(), 0U);
  }
}

TEST_F(EndpointLink, RefusesALengthBeyondItsBufferWithAndWithoutTheBytes) {
  for (const char* length : {"2097125", "2097125,fill=true", "4194304,fill=true", "2147483647"}) {
    connects({"--fault", std::string("length:count=2,value=") + length});
    EXPECT_EQ(exchange(), kSocketFailed) << length;
    EXPECT_EQ(exchange(), 0U) << length;
  }
}

TEST_F(EndpointLink, TakesTheLongestLengthThatItHasRoomFor) {
  // All of it arrives; the zeros behind the record are records of their own, but for a rest.
  connects({"--fault", "length:value=2097124,fill=true"});
  EXPECT_EQ(exchange(), kBadReply);
}

TEST_F(EndpointLink, RefusesGarbageMagic) {
  connects({"--fault", "magic"});
  EXPECT_EQ(exchange(), kBadReply);
}

TEST_F(EndpointLink, WalksNoFurtherThanAnAnswerOfTwoRecordsOrNone) {
  for (const char* fault : {"two-records", "no-record"}) {
    connects({"--fault", std::string(fault) + ":request=2"});
    EXPECT_EQ(walk(), kBadReply) << fault;
    ASSERT_EQ(package.count(), 1U) << "the row before stays";
    EXPECT_EQ(key(0), 2U);
  }
}

TEST_F(EndpointLink, TakesARecordWithoutAStatusForARow) {
  connects({"--fault", "no-status:request=1"});
  EXPECT_EQ(walk(), 0U);
  EXPECT_EQ(package.count(), 3U);
}

TEST_F(EndpointLink, ThrowsOnATextForAStatus) {
  connects({"--fault", "text-status"});
  EXPECT_THROW(walk(), CQOV_Exception);
}

TEST_F(EndpointLink, EndsAWalkAtAnotherStatusAndKeepsItsRecord) {
  connects({"--fault", "status:request=2"});
  EXPECT_EQ(walk(), 0U);
  ASSERT_EQ(package.count(), 2U);
  EXPECT_EQ(key(1), 300U);
  EXPECT_EQ(package[1].find(4095)->number(), 7U);
}

TEST_F(EndpointLink, EndsAWalkWithoutAnEndAfterTenThousandRows) {
  connects({"--quiet", "--fault", "no-end"});
  EXPECT_EQ(walk(), 0U);
  ASSERT_EQ(package.count(), 10001U);
  for (unsigned long i = 0; i < 10000; ++i) {
    ASSERT_EQ(key(i), i % 2 == 0 ? 2U : 300U);
  }
  EXPECT_EQ(package[10000].count(), 0U);
  EXPECT_EQ(counted(),
            "connections 1 requests 10000 replies 10000 rows 10000 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointLink, FailsWhileConnectionsAreRefused) {
  connects({"--fault", "refuse:seconds=3600,connection=1"});
  EXPECT_EQ(exchange(), kSocketFailed);
  EXPECT_EQ(exchange(), kSocketFailed);
}

TEST_F(EndpointLink, ConnectsAgainAfterATimeOfRefusal) {
  connects({"--fault", "refuse:seconds=0.2,count=1"});
  exchange();
  EXPECT_TRUE(waitUntil([&] { return exchange() == 0; }));
  expectRow();
}

TEST_F(EndpointLink, FailsOnAnEndpointThatNeverAnswers) {
  connectsHasty("silent");
  EXPECT_EQ(exchange(), kSocketFailed);
}

TEST_F(EndpointLink, ConnectsAgainToAnEndpointThatWasKilledAndStarted) {
  connects();
  EXPECT_EQ(walk(), 0U);
  endpoint.end(SIGKILL);
  EXPECT_EQ(exchange(), kSocketFailed);
  starts();
  EXPECT_EQ(exchange(), 0U);
  EXPECT_EQ(walk(), 0U);
  EXPECT_EQ(counted(), "connections 2 requests 7 replies 7 rows 5 ends 2 stored 0 refusals 0");
}

TEST_F(EndpointLink, KeepsOnExchangingWhenTheEndpointIsStartedAgainInBetween) {
  connects();
  EXPECT_EQ(exchange(), 0U);
  endpoint.end(SIGKILL);
  starts();
  // The first attempt meets the connection that is gone, the second one the new endpoint.
  EXPECT_EQ(exchange(), 0U);
  EXPECT_EQ(counted(), "connections 2 requests 2 replies 2 rows 2 ends 0 stored 0 refusals 0");
}

TEST_F(EndpointLink, StoresRecordsAndWalksThemFromSeveralThreads) {
  connects({"--quiet"});
  const auto work = [&](std::uint32_t table) {
    const LogCapture quiet;
    for (int i = 0; i < 20; ++i) {
      CT7QPackageV3 rows;
      rows.addRecord(kStoreTo + table).addUnsigned(1, table);
      EXPECT_EQ(link->sendMsg(&rows), 0U);
      EXPECT_EQ(rows[0].getUnsigned(1), static_cast<std::uint64_t>(i) + 1);
    }
    CT7QPackageV3 walked;
    walked.addRecord(kGetNextOf + table);
    EXPECT_EQ(link->sendGetNextMsgV3(&walked), 0U);
    EXPECT_EQ(walked.count(), 21U);
    for (unsigned long i = 0; i + 1 < walked.count(); ++i) {
      EXPECT_EQ(walked[i].getUnsigned(1), table);
    }
  };
  std::vector<std::thread> threads;
  for (std::uint32_t table = 0x2000; table < 0x2004; ++table) {
    threads.emplace_back(work, table);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counted(),
            "connections 1 requests 164 replies 164 rows 80 ends 4 stored 80 refusals 0");
}

}  // namespace
}  // namespace qov::test
