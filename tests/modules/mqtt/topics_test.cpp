#include "modules/mqtt/topics.h"

#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>

namespace qov::test {
namespace {

using mqtt::Topics;

TEST(MqttTopics, LieBelowNodeAndProcess) {
  const Topics topics("12", "devagent");
  EXPECT_EQ(topics.status(), "qov/12/devagent/status");
  EXPECT_EQ(topics.event(20, 4097), "qov/12/devagent/event/20/4097");
  EXPECT_EQ(topics.event(0, 0xFFFFFFFFFFFFFFFFU), "qov/12/devagent/event/0/18446744073709551615");
  EXPECT_EQ(topics.requests(), "qov/12/devagent/request/+");
  EXPECT_EQ(topics.responses(), "qov/12/devagent/response/");
  EXPECT_EQ(topics.clientId(), "qov-devagent-12");
}

TEST(MqttTopics, RefuseNamesThatMeanSomethingInATopic) {
  for (const std::string bad : {"", "a/b", "+", "a#", "a\nb", "\x7f"}) {
    EXPECT_THROW(Topics(bad, "agent"), CQOV_Exception) << bad;
    EXPECT_THROW(Topics("1", bad), CQOV_Exception) << bad;
  }
  EXPECT_NO_THROW(Topics("rack 3-é", "agent_1"));
}

}  // namespace
}  // namespace qov::test
