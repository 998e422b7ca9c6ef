#include "tests/diag/log_capture.h"
#include "tests/link/link_fixture.h"
#include "tests/tools/endpoint_fixture.h"

namespace qov::test {
namespace {

/// The link with an endpoint that is a process. What the link makes of bad answers is tested in
/// tests/link, what the endpoint's faults send in endpoint_faults_test.cpp.
class EndpointLink : public EndpointTest {
 protected:
  void connects() {
    starts();
    link = std::make_unique<TestLink>(endpoint.port(), endless());
  }

  /// The result of one exchange; asks for the first row of table 7.
  unsigned int exchange() {
    package.clear();
    package.addRecord(kGetNextOf + kThings);
    return link->sendMsg(&package);
  }
  unsigned int walk() {
    package.clear();
    package.addRecord(kGetNextOf + kThings);
    return link->sendGetNextMsgV3(&package);
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

TEST_F(EndpointLink, ConnectsAgainToAnEndpointThatWasKilledAndStarted) {
  connects();
  EXPECT_EQ(walk(), 0U);
  endpoint.end(SIGKILL);
  EXPECT_EQ(exchange(), CQOVLongSocket::kSocketFailed);
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

}  // namespace
}  // namespace qov::test
