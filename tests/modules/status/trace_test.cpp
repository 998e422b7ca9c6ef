// The trace of messages over the socket.
#include <qovpub/qov_trace.h>

#include <set>

#include "tests/modules/status/status_fixture.h"

namespace qov::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

const json kStart{{"request", "trace-start"}};
const json kRead{{"request", "trace-read"}};
const json kStop{{"request", "trace-stop"}};

constexpr int kMostSteps = 2000;
enum Field : std::size_t { kTime, kThread, kStep, kModule, kReason, kType, kFrom, kTo };

class StatusTrace : public StatusTest {
 protected:
  /// Whether a client may have the trace soon.
  bool isFree() {
    return waitUntil([this] { return client().ask(kStart).contains("process"); });
  }
  static std::string refusal(const json& answer) { return answer.value("error", ""); }
  /// Whether a trace begins that has the messages of that module, or of all.
  bool begins(const json& module) {
    return client().ask({{"request", "trace-start"}, {"module", module}}).contains("process");
  }
};

TEST_F(StatusTrace, HasEachKindOfStepWithTheNamesOfThreads) {
  startsWith({"tracing", "traced"});
  StatusClient reader = client();
  const json started = reader.ask(kStart);
  EXPECT_EQ(started["process"], "qov_test_agent");
  EXPECT_EQ(started["pid"], reader.agent());
  EXPECT_EQ(started["modules"][0]["name"], "tracing");
  std::set<std::string> kinds;
  std::set<std::string> names;
  ASSERT_TRUE(waitUntil([&] {
    const json part = reader.ask(kRead);
    for (const json& step : part["steps"]) {
      EXPECT_EQ(step.size(), part["fields"].size());
      EXPECT_LE(step[kTime], reader.ask(kRead)["time"]);
      EXPECT_EQ(step[kReason].is_string(), step[kStep] == "drop");
      kinds.insert(step[kStep]);
    }
    for (const json& name : part["threads"]) {
      names.insert(name);
    }
    return kinds.size() == 7 && names.count("asker") != 0 && names.count("m61-worker-1") != 0;
  })) << json(kinds)
      << json(names);
}

TEST_F(StatusTrace, OneClientHasItAtATime) {
  startsWith({"tracing", "traced"});
  {
    StatusClient first = client();
    EXPECT_EQ(refusal(first.ask(kStart)), "");
    EXPECT_EQ(refusal(client().ask(kStart)),
              "the trace is on already, for this client or another one");
    EXPECT_THAT(refusal(client().ask(kRead)), HasSubstr("trace-start comes first"));
    EXPECT_EQ(status()["trace"], true);
    first.ask(kStop);
    EXPECT_EQ(status()["trace"], false);
    // Until its connection ends: it may have more to read.
    EXPECT_NE(refusal(client().ask(kStart)), "");
  }
  EXPECT_TRUE(isFree());
}

TEST_F(StatusTrace, AClientThatAsksForNothingLosesIt) {
  configure("ClientSeconds=1\n");
  startsWith({"tracing", "traced"});
  StatusClient idle = client();
  EXPECT_EQ(refusal(idle.ask(kStart)), "");
  EXPECT_TRUE(isFree());
}

TEST_F(StatusTrace, NothingIsRecordedAfterAStop) {
  startsWith({"tracing", "traced"});
  StatusClient reader = client();
  reader.ask(kStart);
  const json stop = reader.ask(kStop)["time"];
  // A thread may be about to tell of a step when the trace is stopped.
  json rest = reader.ask(kRead);
  ASSERT_TRUE(waitUntil([&] { return (rest = reader.ask(kRead))["steps"].empty(); }));
  EXPECT_GT(rest["time"], stop);
}

TEST_F(StatusTrace, ADocumentHasSoManyStepsAndNoMore) {
  configure("ClientSeconds=600\n");
  startsWith({"chatter"});
  StatusClient reader = client();
  reader.ask(kStart);
  const auto handled = [this] { return status()["modules"][0]["handled"]["count"].get<int>(); };
  const int before = handled();
  ASSERT_TRUE(waitUntil([&] { return handled() > before + kMostSteps; }));
  const json part = reader.ask(kRead);
  EXPECT_EQ(part["steps"].size(), kMostSteps);
  EXPECT_EQ(part["more"], true);
  EXPECT_TRUE(waitUntil([&] { return reader.ask(kRead)["more"] == false; }));
}

TEST_F(StatusTrace, TellsHowManyStepsWereLost) {
  // Two sends, two of the leader, begin, end and answer.
  constexpr std::size_t kStepsOfARequest = 7;
  constexpr std::size_t kUnfinished = 100;  // more than there are at once
  configure("ClientSeconds=3600\n");
  startsWith({"rushing"});
  StatusClient reader = client();
  reader.ask(kStart);
  EXPECT_EQ(reader.ask(kRead)["lost"], 0);
  const auto handled = [this]() -> std::size_t {
    return status()["modules"][0]["handled"]["count"];
  };
  const std::size_t before = handled();
  const std::size_t enough = QOVMessageTrace::kRoom / kStepsOfARequest + kUnfinished;
  // By halves: it takes a sanitizer's build on a busy machine more than one wait's time.
  ASSERT_TRUE(waitUntil([&] { return handled() >= before + enough / 2; }));
  ASSERT_TRUE(waitUntil([&] { return handled() >= before + enough; }));
  reader.ask(kStop);
  const json part = reader.ask(kRead);
  EXPECT_GT(part["lost"], 0);
  EXPECT_EQ(part["more"], true);
  EXPECT_EQ(reader.ask(kRead)["lost"], 0);
}

TEST_F(StatusTrace, MayBeThatOfOneModule) {
  startsWith({"chatter", "tracing", "traced"});
  StatusClient reader = client();
  reader.ask({{"request", "trace-start"}, {"module", 60}});
  json steps;
  ASSERT_TRUE(waitUntil([&] { return (steps = reader.ask(kRead)["steps"]).size() > 20; }));
  for (const json& step : steps) {
    EXPECT_TRUE(step[kFrom] == 60 || step[kTo] == 60 || step[kModule] == 60) << step;
  }
}

TEST_F(StatusTrace, AModuleThatCannotBeIsRefused) {
  startsWith();
  for (const json& module : {json(256), json(-1), json("60"), json(1.5)}) {
    EXPECT_FALSE(begins(module)) << module;
  }
  EXPECT_TRUE(waitUntil([&] { return begins(255); }));
  EXPECT_TRUE(waitUntil([&] { return begins(0); }));
}

}  // namespace
}  // namespace qov::test
