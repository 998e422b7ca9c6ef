// What is told of modules and links.
#include <gtest/gtest.h>
#include <qovpub/qov_long_socket.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <chrono>

#include "modules/status/activity_document.h"
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

TEST(StatusOfAModule, IsThatItStopsHoweverFullItIs) {
  QOVModuleStats stopping = stats(2, 2, QOVModuleStats::kRoomBytes);
  stopping.stopping_ = true;
  EXPECT_STREQ(stateOf(stopping), "stopping");
}

/// Answers nobody.
class Silent : public CQOV_TaskMgr {
 public:
  Silent() : CQOV_TaskMgr(kId, 0, "silent") {}
  CQOV_Task* createTask() override { return nullptr; }

  static constexpr std::uint8_t kId = 20;
};

TEST(StatusOfPending, IsTheOldestOfEachModuleAndHowManyMoreThereAre) {
  test::thisProcess();
  const QOVActivity activity;
  Silent module;
  ASSERT_TRUE(module.init());
  CQOV_Task task(&module);
  std::uint64_t asked = 0;
  const auto askUpTo = [&](std::uint64_t count) {
    for (; asked < count; ++asked) {
      EXPECT_EQ(
          QOVRequest(task, Silent::kId, asked).askLater(std::chrono::hours(1), [](QOVAnswer) {}),
          QOVReason::kNone);
    }
    return pendingDocument(activity);
  };
  const Json::Value all = askUpTo(kMostOfModule);
  EXPECT_EQ(all["requests"].size(), kMostOfModule);
  EXPECT_EQ(all["moreRequests"], Json::Value(Json::arrayValue));
  const Json::Value some = askUpTo(kMostOfModule + 3);
  EXPECT_EQ(some["requests"].size(), kMostOfModule);
  EXPECT_EQ(some["requests"][0]["operation"].asUInt64(), 0u);
  ASSERT_EQ(some["moreRequests"].size(), 1u);
  EXPECT_EQ(some["moreRequests"][0]["module"].asUInt(), Silent::kId);
  EXPECT_EQ(some["moreRequests"][0]["count"].asUInt(), 3u);
  module.stop();
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
