// What "qovctl agent trace --text" prints of steps, told here without an agent.
#include "tools/qovctl/trace_diagram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/modules/status/trace_steps.h"

namespace qov::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr TraceSteps::Message kSlow{TraceSteps::kRequest, 1, 2, 5, 9};
constexpr TraceSteps::Message kFast{TraceSteps::kRequest, 1, 2, 6, 10};
constexpr TraceSteps::Message kCaused{TraceSteps::kRequest, 2, 1, 7, 11};
constexpr TraceSteps::Message kUnanswered{TraceSteps::kRequest, 1, 2, 8, 12};

TraceSteps someRequests() {
  TraceSteps steps;
  steps.add(0, 11, "send", 1, kSlow)
      .add(2, 10, "dispatch", 1, kSlow)
      .add(3, 12, "send", 1, kFast)
      .add(4, 20, "dispatch", 2, kSlow)
      .add(5, 12, "answer", 1, kFast.response())
      .add(6, 21, "begin", 2, kSlow)
      .add(8, 21, "send", 2, kCaused)
      .add(9, 20, "dispatch", 2, kCaused)
      .add(1500, 20, "time-out", 2, kCaused)
      .add(1600, 21, "send", 2, kSlow.response())
      .add(1601, 20, "dispatch", 2, kSlow.response())
      .add(1602, 11, "answer", 1, kSlow.response())
      .add(1603, 21, "end", 2, kSlow)
      .add(1604, 21, "send", 2, kUnanswered)
      .add(1700, 20, "drop", 2, kUnanswered, "noReceiver");
  return steps;
}

TEST(TraceDiagram, ShowsTheSlowestAnsweredRequestAndWhatItsHandlerSent) {
  EXPECT_EQ(ctl::traceDiagram(someRequests().log, std::nullopt), R"(sequenceDiagram
    title: request 9, SN 0x5
    participant P1 as m1-worker-1
    participant P2 as leader of 1 one
    participant P3 as leader of 2 two
    participant P4 as m2-worker-1
    P1->>P2: request 9, +2 us
    P2->>P3: request 9, +4 us
    P3->>P4: handle 9, +6 us
    activate P4
    P4->>P3: request 11, +9 us
    Note over P4: time-out: 11, +1.50 ms
    P4-->>P3: response 9, +1.60 ms
    P3-->>P1: answer to 9, +1.60 ms
    Note over P4: done with 9, +1.60 ms
    deactivate P4
)");
}

TEST(TraceDiagram, ShowsTheRequestWithTheSerialNumber) {
  const ctl::TraceLog log = someRequests().log;
  EXPECT_THAT(ctl::traceDiagram(log, 6), HasSubstr("title: request 10, SN 0x6\n"));
  EXPECT_THAT(ctl::traceDiagram(log, 8), HasSubstr("drop, noReceiver"));
  EXPECT_EQ(ctl::traceDiagram(log, 99), "");
}

TEST(TraceDiagram, TellsThreadsOfOneNameApart) {
  constexpr TraceSteps::Message kOwn{TraceSteps::kRequest, 1, 1, 5, 9};
  TraceSteps steps;
  steps.add(0, 31, "send", 1, kOwn).add(2, 32, "begin", 1, kOwn);
  steps.add(4, 31, "answer", 1, kOwn.response()).add(5, 32, "end", 1, kOwn);
  EXPECT_THAT(ctl::traceDiagram(steps.log, std::nullopt),
              HasSubstr("participant P1 as m1-static\n    participant P2 as m1-static 32\n"
                        "    P1->>P2: handle 9, +2 us\n"));
}

TEST(TraceDiagram, HasNothingToShowWithoutAnAnswer) {
  EXPECT_EQ(ctl::traceDiagram(TraceSteps().log, std::nullopt), "");
  EXPECT_EQ(ctl::traceDiagram(TraceSteps().add(0, 11, "send", 1, kSlow).log, std::nullopt), "");
}

TEST(TraceDiagram, FollowsWhatHandlersSendFromModuleToModule) {
  constexpr TraceSteps::Message kFirst{TraceSteps::kNotice, 2, 1, 20, 20};
  constexpr TraceSteps::Message kSecond{TraceSteps::kNotice, 1, 2, 21, 21};
  constexpr TraceSteps::Message kUnrelated{TraceSteps::kNotice, 1, 2, 22, 22};
  TraceSteps steps;
  steps.add(0, 11, "send", 1, kSlow)
      .add(1, 21, "begin", 2, kSlow)
      .add(2, 21, "send", 2, kFirst)
      .add(3, 12, "begin", 1, kFirst)
      .add(4, 22, "send", 1, kUnrelated)
      .add(5, 12, "send", 1, kSecond)
      .add(6, 12, "end", 1, kFirst)
      .add(7, 12, "send", 1, kUnrelated)
      .add(8, 22, "begin", 2, kSecond)
      .add(9, 21, "end", 2, kSlow)
      .add(10, 11, "answer", 1, kSlow.response());
  const std::string text = ctl::traceDiagram(steps.log, std::nullopt);
  EXPECT_THAT(text, HasSubstr("handle 20, +3 us"));
  EXPECT_THAT(text, HasSubstr("handle 21, +8 us"));
  EXPECT_THAT(text, Not(HasSubstr("22")));
}

TEST(TraceDiagram, LeavesOutWhatNobodyWouldRead) {
  TraceSteps steps;
  steps.add(0, 11, "send", 1, kSlow);
  for (int i = 1; i <= 300; ++i) {
    steps.add(i, 10, "dispatch", 1, kSlow);
  }
  steps.add(400, 11, "answer", 1, kSlow.response());
  const std::string text = ctl::traceDiagram(steps.log, std::nullopt);
  EXPECT_THAT(text, HasSubstr("+199 us"));
  EXPECT_THAT(text, Not(HasSubstr("+200 us")));
  EXPECT_THAT(text, HasSubstr("Note over P1: and 102 steps more\n"));
}

}  // namespace
}  // namespace qov::test
