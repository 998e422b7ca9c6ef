#include <algorithm>
#include <csignal>

#include "modules/common/message_payload.h"
#include "tests/tools/qovctl_fleet_test.h"

namespace qov::test {
namespace {

using ::testing::Not;

CQOV_MsgPackage link(const std::string& name) {
  CQOV_MsgPackage message;
  message.head().type_ = QOVMsgHead::kEvent;
  message.head().opc_ = 4097;
  CTLVRecordV3& record = message.addRecord(7);
  record.addString(1, name.c_str());
  record.addUnsigned(2, 1);
  return message;
}

std::string json(const std::string& name) {
  return common::jsonOfMessage(link(name));
}

/// Events end with one from this agent, since nothing tells that none follow.
class QovctlFleetWatch : public QovctlFleet {
 protected:
  void startWatching(std::vector<std::string> more = {}) {
    startBroker();
    startFleet("watch", std::move(more));
    ASSERT_TRUE(waitForSubscription());
  }
  void event(const std::string& payload, const std::string& number,
             const std::string& outbox = "a1") {
    agents().event("edge-1/devagent/event/20/4097", payload, number, outbox);
  }
  /// What has been printed until the last event is there.
  std::string outputOfAll() {
    event(json("the last one"), "999");
    EXPECT_TRUE(waitForOutput("the last one"));
    send(SIGINT);
    const QovctlRun run = finish();
    EXPECT_EQ(run.signal, SIGINT);
    EXPECT_EQ(run.err, "");
    return run.out.substr(0, run.out.rfind('\n', run.out.find("the last one")) + 1);
  }
};

TEST_F(QovctlFleetWatch, PrintsEachEventAsItComes) {
  startWatching();
  event(json("eth0"), "17");
  EXPECT_TRUE(waitForOutput("number 17"));
  CQOV_MsgPackage message = link("eth1");
  agents().event("edge-2/up/event/21/9", common::bytesOfMessage(message), "18", "a1",
                 "application/vnd.qov.message");
  EXPECT_EQ(outputOfAll(),
            "edge-1/devagent  module 20  opc 4097  number 17  7 1:eth0 2:1\n"
            "edge-2/up  module 21  opc 9  number 18  7 1:eth1 2:1\n");
}

TEST_F(QovctlFleetWatch, LeavesOutWhatComesAgain) {
  startWatching();
  event(json("first"), "1");
  event(json("second"), "2");
  event(json("again"), "1");
  event(json("again"), "2");
  event(json("of a new outbox"), "1", "b2");
  agents().event("edge-2/devagent/event/20/4097", json("of another agent"), "1");
  event(json("without a number"), "");
  event(json("without a number"), "");
  const std::string out = outputOfAll();
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 6) << out;
  EXPECT_THAT(out, Not(HasSubstr("again")));
}

TEST_F(QovctlFleetWatch, PrintsALineOfJsonForEachEvent) {
  startWatching({"--json"});
  event(json("eth0"), "17");
  const Json::Value printed = common::parseJson(outputOfAll());
  EXPECT_EQ(printed["agent"].asString(), "edge-1/devagent");
  EXPECT_EQ(printed["module"].asInt(), 20);
  EXPECT_EQ(printed["opc"].asInt(), 4097);
  EXPECT_EQ(printed["number"].asInt(), 17);
  EXPECT_EQ(printed["outbox"].asString(), "a1");
  EXPECT_EQ(printed["message"]["records"][0]["cells"][0]["value"].asString(), "eth0");
}

TEST_F(QovctlFleetWatch, ShowsTheAgentsThatThePatternNames) {
  startWatching({"edge-[1-3]/*"});
  agents().event("edge-2/up/event/20/1", json("wanted"), "1");
  agents().event("edge-4/up/event/20/1", json("other"), "1");
  agents().event("core/up/event/20/1", json("other"), "1");
  EXPECT_EQ(outputOfAll(), "edge-2/up  module 20  opc 1  number 1  7 1:wanted 2:1\n");
}

TEST_F(QovctlFleetWatch, SaysWhatIsNoMessageAndGoesOn) {
  startWatching();
  event("", "1");
  event("hello \x1b[2J", "2");
  event("{}", "3");
  event(std::string(200000, '['), "4");
  agents().event("edge-1/devagent/event/20/1", "hello", "5", "a1", "application/vnd.qov.message");
  // The library of the agents lets no other control characters pass.
  agents().event("edge-1/devagent/event/\u202e/2", "{}", "\u202e6", "a1");
  event(json("\x1b[2J"), "7");
  const std::string out = outputOfAll();
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 7) << out;
  EXPECT_THAT(out, HasSubstr("number 1  bad message: not JSON: "));
  EXPECT_THAT(out, HasSubstr("number 5  bad message: bad data at byte "));
  EXPECT_THAT(out, HasSubstr("number 7  7 1:\\x1b[2J 2:1\n"));
  EXPECT_THAT(out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(out, Not(HasSubstr("\u202e")));
  EXPECT_THAT(out, HasSubstr("module \\xe2\\x80\\xae  opc 2  number \\xe2\\x80\\xae6  bad"));
  EXPECT_LT(out.size(), 2000U);
}

TEST_F(QovctlFleetWatch, EndsWhenItsTimeIsOver) {
  startBroker();
  const QovctlRun watched = fleet("watch", {"--seconds", "0.1"});
  EXPECT_EQ(watched.status, 0) << watched.err;
  EXPECT_EQ(watched.out, "");
}

TEST_F(QovctlFleetWatch, SaysThatItsBrokerIsGone) {
  startWatching();
  broker().stop(SIGKILL);
  const QovctlRun watched = finish();
  EXPECT_EQ(watched.status, 3);
  EXPECT_THAT(watched.err,
              StartsWith("qovctl: the connection to " + broker().address() + " is lost: "));
}

}  // namespace
}  // namespace qov::test
