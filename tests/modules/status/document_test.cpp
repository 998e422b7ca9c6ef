// What is told of modules and links.
#include <gtest/gtest.h>
#include <qovpub/qov_long_socket.h>

#include "modules/status/status_document.h"
#include "tests/support/this_process.h"

namespace qov::status {
namespace {

QOVModuleStats stats(std::uint64_t workers, std::uint64_t busy, std::uint64_t bytes) {
  QOVModuleStats result;
  result.workers_ = workers;
  result.busy_ = busy;
  result.waitingBytes_ = bytes;
  result.waiting_ = bytes / 8;
  return result;
}

TEST(StatusOfAModule, IsWhatAnOperatorWantsToKnowFirst) {
  EXPECT_STREQ(stateOf(stats(2, 0, 0)), "idle");
  EXPECT_STREQ(stateOf(stats(0, 0, 0)), "idle");
  EXPECT_STREQ(stateOf(stats(2, 1, 0)), "working");
  EXPECT_STREQ(stateOf(stats(0, 0, 8)), "working");
  EXPECT_STREQ(stateOf(stats(2, 2, 0)), "busy");
  EXPECT_STREQ(stateOf(stats(2, 2, QOVModuleStats::kRoomBytes - 8)), "busy");
  EXPECT_STREQ(stateOf(stats(2, 0, QOVModuleStats::kRoomBytes)), "full");
}

class Link : public CQOVLongSocket {
 public:
  explicit Link(const std::string& endpoint) : CQOVLongSocket(endpoint, Limits()) {}
};

TEST(StatusOfALink, IsWhereItLeadsAndWhyItIsNotConnected) {
  test::thisProcess();
  const auto links = [] { return statusDocument(startNow(), {})["links"]; };
  EXPECT_TRUE(links().empty());
  const Link link("nowhere");
  ASSERT_EQ(links().size(), 1u);
  EXPECT_EQ(links()[0]["endpoint"], "nowhere");
  EXPECT_EQ(links()[0]["connected"], false);
  EXPECT_GT(links()[0]["since"].asDouble(), 0);
  EXPECT_EQ(links()[0]["connections"].asUInt(), 0u);
  EXPECT_EQ(links()[0]["lastError"], "this is not host:port");
}

}  // namespace
}  // namespace qov::status
