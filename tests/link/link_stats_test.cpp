// What getLinkStats() tells of a link.
#include <qovpub/qov_link_stats.h>

#include "tests/link/exchange_fixture.h"

namespace qov::test {
namespace {

class NamedLink : public CQOVLongSocket {
 public:
  explicit NamedLink(const std::string& endpoint) : CQOVLongSocket(endpoint, Limits()) {}
};

class LinkStats : public LinkTest {
 protected:
  /// Of the one link that there is.
  static QOVLinkStats stats() {
    const std::vector<QOVLinkStats> all = getLinkStats();
    EXPECT_EQ(all.size(), 1u);
    return all.empty() ? QOVLinkStats() : all.front();
  }
};

TEST_F(LinkStats, TellWhereTheLinkIsConnected) {
  EXPECT_TRUE(getLinkStats().empty());
  plays({answers});
  connects();
  EXPECT_EQ(stats().endpoint_, peer.address());
  EXPECT_TRUE(stats().connected_);
  EXPECT_GT(stats().since_.count(), 0);
  EXPECT_EQ(stats().connections_, 1u);
  EXPECT_EQ(stats().lastError_, "");
  link.reset();
  EXPECT_TRUE(getLinkStats().empty());
}

TEST_F(LinkStats, TellWhyThereIsNoConnection) {
  connects();
  EXPECT_FALSE(stats().connected_);
  EXPECT_EQ(stats().connections_, 0u);
  EXPECT_EQ(stats().lastError_, "Connection refused");
}

TEST_F(LinkStats, KeepTheLastErrorOfALinkThatIsConnectedAnew) {
  plays({[](auto& connection) { connection.request(); }, answers});
  connects();
  EXPECT_EQ(sends(), 0u);
  EXPECT_TRUE(stats().connected_);
  EXPECT_EQ(stats().connections_, 2u);
  EXPECT_NE(stats().lastError_, "");
}

TEST_F(LinkStats, KeepWhyTheLinkWasNotConnectedBefore) {
  connects();
  plays({answers});
  EXPECT_EQ(sends(), 0u);
  EXPECT_TRUE(stats().connected_);
  EXPECT_EQ(stats().connections_, 1u);
  EXPECT_EQ(stats().lastError_, "Connection refused");
}

TEST_F(LinkStats, ListLinksInTheOrderInWhichTheyWereMade) {
  plays({answers, answers});
  connects();
  const NamedLink second("nowhere");
  ASSERT_EQ(getLinkStats().size(), 2u);
  EXPECT_EQ(getLinkStats()[0].endpoint_, peer.address());
  EXPECT_FALSE(getLinkStats()[1].connected_);
  EXPECT_EQ(getLinkStats()[1].lastError_, "this is not host:port");
}

}  // namespace
}  // namespace qov::test
