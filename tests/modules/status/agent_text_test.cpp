// What qovctl makes of an agent's answer.
#include "tools/qovctl/agent_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/common/json_object.h"

namespace qov::ctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(AgentText, HasTheLinksOfTheAgent) {
  const Json::Value status = tools::parseJson(R"({"modules": [], "links": [
      {"endpoint": "mmt:19001", "connected": false, "since": 4.25, "connections": 2,
       "lastError": "Connection refused"},
      {"endpoint": "mmt:19002", "connected": true, "since": 61, "connections": 1,
       "lastError": ""}]})");
  EXPECT_THAT(statusText(status), HasSubstr(R"(
link       state          for     connections  last error
mmt:19001  not connected  4.2s    2            Connection refused
mmt:19002  connected      1m 01s  1            -
)"));
}

TEST(AgentText, HasWhyMessagesWereDropped) {
  const Json::Value status = tools::parseJson(
      R"({"modules": [{"id": 1, "dropped": {"noRoom": 2, "stopped": 0, "invalid": 1}}]})");
  EXPECT_THAT(statusText(status), HasSubstr("invalid 1, noRoom 2\n"));
}

TEST(AgentText, HasTheConfigurationThatIsInForceAndWhatCameAfter) {
  EXPECT_THAT(statusText(tools::parseJson(R"({"modules": [], "configuration": {"file": "/a.cfg",
      "inForce": "1", "modified": "1", "changedSinceStart": false}})")),
              HasSubstr("configuration  /a.cfg of 1\n"));
  EXPECT_THAT(statusText(tools::parseJson(R"({"modules": [], "configuration": {"file": "/a.cfg",
      "inForce": "1", "modified": "2", "changedSinceStart": true}})")),
              HasSubstr("configuration  /a.cfg of 1; changed since the start, at 2\n"));
}

TEST(AgentText, LeavesOutWhatTheAgentDoesNotTell) {
  EXPECT_THAT(statusText(tools::parseJson(R"({"modules": [{}]})")),
              HasSubstr("version        -\n"));
  EXPECT_THAT(statusText(tools::parseJson(R"({"modules": []})")), Not(HasSubstr("link")));
}

TEST(AgentText, ShowsControlCharactersInHexadecimal) {
  const Json::Value list =
      tools::parseJson(R"({"modules": [{"id": 1, "name": "a\u001b[2J", "state": "idle"}]})");
  EXPECT_THAT(modulesText(list), HasSubstr(R"(a\x1b[2J)"));
}

TEST(AgentText, RefusesWhatIsOfAnotherType) {
  EXPECT_THROW(modulesText(tools::parseJson("{}")), tools::BadJson);
  EXPECT_THROW(modulesText(tools::parseJson(R"({"modules": 7})")), tools::BadJson);
  EXPECT_THROW(modulesText(tools::parseJson(R"({"modules": [7]})")), tools::BadJson);
}

TEST(AgentText, HasSpansInTwoUnits) {
  EXPECT_EQ(spanText(0), "-");
  EXPECT_EQ(spanText(0.31), "310ms");
  EXPECT_EQ(spanText(59.96), "59.9s");
  EXPECT_EQ(spanText(60), "1m 00s");
  EXPECT_EQ(spanText(3599), "59m 59s");
  EXPECT_EQ(spanText(3600), "1h 00m");
  EXPECT_EQ(spanText(86400 * 2 + 3600 * 3), "2d 3h");
}

}  // namespace
}  // namespace qov::ctl
