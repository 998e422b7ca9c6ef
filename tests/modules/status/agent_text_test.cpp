// What qovctl makes of an agent's answer.
#include "tools/qovctl/agent_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "modules/common/json_object.h"
#include "tools/qovctl/agent_parts.h"

namespace qov::ctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(AgentText, HasTheLinksOfTheAgent) {
  const Json::Value status = common::parseJson(R"({"modules": [], "links": [
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
  const Json::Value status = common::parseJson(
      R"({"modules": [{"id": 1, "dropped": {"noRoom": 2, "stopped": 0, "invalid": 1}}]})");
  EXPECT_THAT(statusText(status), HasSubstr("invalid 1, noRoom 2\n"));
}

TEST(AgentText, HasHowManyMessagesWereRefused) {
  const Json::Value status = common::parseJson(
      R"({"modules": [{"timedOut": 1, "refused": 34, "dropped": {"stopped": 5}}]})");
  EXPECT_THAT(statusText(status), HasSubstr("timed out  refused  dropped\n"));
  EXPECT_THAT(statusText(status), HasSubstr("1          34       stopped 5\n"));
}

TEST(AgentText, HasTheConfigurationThatIsInForceAndWhatCameAfter) {
  EXPECT_THAT(statusText(common::parseJson(R"({"modules": [], "configuration": {"file": "/a.cfg",
      "inForce": "1", "modified": "1", "changedSinceStart": false}})")),
              HasSubstr("configuration  /a.cfg of 1\n"));
  EXPECT_THAT(statusText(common::parseJson(R"({"modules": [], "configuration": {"file": "/a.cfg",
      "inForce": "1", "modified": "2", "changedSinceStart": true}})")),
              HasSubstr("configuration  /a.cfg of 1; changed since the start, at 2\n"));
}

TEST(AgentText, OfMetricsHasLinesAndNoOtherControlCharacter) {
  const Json::Value answer =
      common::parseJson(R"({"metrics": "# HELP a \u001b[2J\u007f\nb 1\r\n# EOF\n"})");
  EXPECT_EQ(metricsText(answer), "# HELP a \\x1b[2J\\x7f\nb 1\\x0d\n# EOF\n");
}

TEST(AgentText, HasWhoWaitsForWhom) {
  const Json::Value pending = common::parseJson(R"({
      "modules": [{"id": 20, "name": "inventory"}, {"id": 21, "name": "collector"}],
      "requests": [{"module": 20, "thread": {"id": 5, "name": "m20-worker-1"},
                    "receiver": {"process": 7, "module": 21}, "operation": 9, "serial": 1,
                    "waiting": 4.25, "timeout": 30, "handler": {"id": 6, "name": "m21-worker-1"}},
                   {"module": 21, "thread": null, "receiver": {"process": 7, "module": 99},
                    "operation": 10, "serial": 2, "waiting": 0.5, "timeout": null,
                    "handler": null}],
      "handlers": [{"module": 20, "thread": {"id": 5, "name": "m20-worker-1"}, "operation": 7,
                    "serial": 3, "sender": {"process": 7, "module": 1}, "continuation": false,
                    "running": 4.5, "waitsFor": {"receiver": {"process": 7, "module": 21},
                    "operation": 9, "waiting": 4.25}},
                   {"module": 21, "thread": {"id": 6, "name": "m21-worker-1"}, "operation": 9,
                    "serial": 1, "sender": {"process": 7, "module": 20}, "continuation": true,
                    "running": 0.002, "waitsFor": null}],
      "circles": [[20, 21, 20]]})");
  EXPECT_EQ(pendingText(pending),
            R"(request  from          thread        to            for    time-out  handled by
9        20 inventory  m20-worker-1  21 collector  4.2s   30.0s     m21-worker-1
10       21 collector  -             99            500ms  -         -

handler  in            thread        from          for    waits for
7        20 inventory  m20-worker-1  1             4.5s   21 collector, request 9 for 4.2s
9 later  21 collector  m21-worker-1  20 inventory  2.0ms  -

modules wait for each other: 20 inventory -> 21 collector -> 20 inventory
)");
}

TEST(AgentText, HasHowManyMoreWait) {
  EXPECT_EQ(pendingText(common::parseJson(R"({
      "modules": [{"id": 20, "name": "inventory"}],
      "requests": [{"module": 20, "thread": null, "receiver": {"process": 7, "module": 21},
                    "operation": 9, "serial": 1, "waiting": 4.25, "timeout": 30,
                    "handler": null}],
      "moreRequests": [{"module": 20, "count": 812}, {"module": 22, "count": 1}],
      "handlers": [], "moreHandlers": [{"module": 20, "count": 3}], "circles": []})")),
            R"(request  from          thread  to  for   time-out  handled by
9        20 inventory  -       21  4.2s  30.0s     -
and 812 more of 20 inventory
and 1 more of 22

no handler runs
and 3 more of 20 inventory
)");
}

TEST(AgentText, SaysThatNobodyWaits) {
  EXPECT_EQ(pendingText(common::parseJson(
                R"({"modules": [], "requests": [], "handlers": [], "circles": []})")),
            "no request waits\n\nno handler runs\n");
}

TEST(AgentText, HasHowLongHandlersTake) {
  EXPECT_EQ(slowText(common::parseJson(R"({
      "modules": [{"id": 20, "name": "inventory"}],
      "handlers": [{"module": 20, "operation": 7, "continuation": false, "count": 1200,
                    "mean": 0.0042, "median": 0.004, "percentile99": 0.2, "longest": 4.25},
                   {"module": 20, "operation": 7, "continuation": true, "count": 3,
                    "mean": 0.00001, "median": 0.00001, "percentile99": 0.0000105,
                    "longest": 0.00001},
                   {"module": 21, "operation": null, "continuation": false, "count": 9,
                    "mean": 0.0000005, "median": 0.0000005, "percentile99": 0.000001,
                    "longest": 0.000001}]})")),
            R"(handler  in            count  mean   half within  99% within  longest
7        20 inventory  1200   4.2ms  4.0ms        200ms       4.2s
7 later  20 inventory  3      10us   10us         10us        10us
others   21            9      500ns  500ns        1us         1us
)");
  EXPECT_EQ(slowText(common::parseJson(R"({"modules": [], "handlers": []})")),
            "no handler has run\n");
}

TEST(AgentText, LeavesOutWhatTheAgentDoesNotTell) {
  EXPECT_THAT(statusText(common::parseJson(R"({"modules": [{}]})")),
              HasSubstr("version        -\n"));
  EXPECT_THAT(statusText(common::parseJson(R"({"modules": []})")), Not(HasSubstr("link")));
}

TEST(AgentText, ShowsControlCharactersInHexadecimal) {
  const Json::Value list =
      common::parseJson(R"({"modules": [{"id": 1, "name": "a\u001b[2J", "state": "idle"}]})");
  EXPECT_THAT(modulesText(list), HasSubstr(R"(a\x1b[2J)"));
}

TEST(AgentText, RefusesWhatIsOfAnotherType) {
  EXPECT_THROW(modulesText(common::parseJson("{}")), common::BadJson);
  EXPECT_THROW(modulesText(common::parseJson(R"({"modules": 7})")), common::BadJson);
  EXPECT_THROW(modulesText(common::parseJson(R"({"modules": [7]})")), common::BadJson);
}

TEST(AgentText, HasSpansInTwoUnits) {
  EXPECT_EQ(spanText(0), "-");
  EXPECT_EQ(spanText(0.00000025), "250ns");
  EXPECT_EQ(spanText(0.00031), "310us");
  EXPECT_EQ(spanText(0.00425), "4.2ms");
  EXPECT_EQ(spanText(0.31), "310ms");
  EXPECT_EQ(spanText(59.96), "59.9s");
  EXPECT_EQ(spanText(60), "1m 00s");
  EXPECT_EQ(spanText(3599), "59m 59s");
  EXPECT_EQ(spanText(3600), "1h 00m");
  EXPECT_EQ(spanText(86400 * 2 + 3600 * 3), "2d 3h");
}

}  // namespace
}  // namespace qov::ctl
