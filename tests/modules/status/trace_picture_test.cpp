// What "qovctl agent trace" writes of steps, told here without an agent.
#include <gtest/gtest.h>

#include "tests/modules/status/trace_steps.h"

namespace qov::test {
namespace {

using nlohmann::json;

constexpr TraceSteps::Message kAsked{TraceSteps::kRequest, 1, 2, 5, 9};
constexpr TraceSteps::Message kOther{TraceSteps::kRequest, 1, 2, 6, 10};
constexpr TraceSteps::Message kNote{TraceSteps::kNotice, 1, 2, 7, 11};

/// Begin and length of the only slice with that name.
std::pair<double, double> spanOf(const TraceFile& file, const std::string& name) {
  const std::vector<json> slices = file.events("X", name);
  EXPECT_EQ(slices.size(), 1U) << name;
  return slices.empty() ? std::pair(-1.0, -1.0)
                        : std::pair<double, double>(slices[0]["ts"], slices[0]["dur"]);
}

/// An argument of the only slice with that name; null if it has none.
json argumentOf(const TraceFile& file, const std::string& name, const char* argument) {
  const std::vector<json> slices = file.events("X", name);
  EXPECT_EQ(slices.size(), 1U) << name;
  return slices.empty() ? json() : slices[0]["args"].value(argument, json());
}

std::string phasesOf(const std::vector<json>& flow) {
  std::string phases;
  for (const json& point : flow) {
    phases += point["ph"];
  }
  return phases;
}

TEST(TracePicture, ARequestIsAWaitAHandlerAndArrowsFromStepToStep) {
  const TraceFile file = TraceSteps()
                             .add(0, 11, "send", 1, kAsked)
                             .add(2, 10, "dispatch", 1, kAsked)
                             .add(4, 20, "dispatch", 2, kAsked)
                             .add(6, 21, "begin", 2, kAsked)
                             .add(8, 21, "send", 2, kAsked.response())
                             .add(9, 20, "dispatch", 2, kAsked.response())
                             .add(10, 10, "dispatch", 1, kAsked.response())
                             .add(12, 11, "answer", 1, kAsked.response())
                             .add(13, 21, "end", 2, kAsked)
                             .file();
  EXPECT_EQ(spanOf(file, "ask 2 two: 9"), std::pair(0.0, 12.0));
  EXPECT_EQ(argumentOf(file, "ask 2 two: 9", "ended"), "answer");
  EXPECT_EQ(spanOf(file, "2 two: 9"), std::pair(6.0, 7.0));
  EXPECT_EQ(argumentOf(file, "2 two: 9", "cut"), json());
  EXPECT_EQ(argumentOf(file, "2 two: 9", "sn"), 5);
  EXPECT_EQ(argumentOf(file, "2 two: 9", "type"), "request");
  EXPECT_EQ(argumentOf(file, "2 two: 9", "from"), "1 one");
  EXPECT_EQ(argumentOf(file, "2 two: 9", "to"), "2 two");
  EXPECT_EQ(file.events("X", "leader of 1 one: 9").size(), 2U);
  const std::vector<json> flow = file.flow(9, 5);
  EXPECT_EQ(phasesOf(flow), "sttttttf");
  EXPECT_EQ(file.threadOf(flow.front()), "m1-worker-1");
  EXPECT_EQ(file.threadOf(flow[3]), "m2-worker-1");
  EXPECT_EQ(file.threadOf(flow.back()), "m1-worker-1");
}

TEST(TracePicture, AWaitEndsWithTheTimeOutThatALeaderFindsOut) {
  const TraceFile file = TraceSteps()
                             .add(0, 11, "begin", 1, kNote)
                             .add(1, 11, "send", 1, kAsked)
                             .add(100, 10, "time-out", 1, kAsked)
                             .add(101, 11, "end", 1, kNote)
                             .file();
  EXPECT_EQ(spanOf(file, "ask 2 two: 9"), std::pair(1.0, 99.0));
  EXPECT_EQ(argumentOf(file, "ask 2 two: 9", "ended"), "time-out");
  ASSERT_EQ(file.events("i", "time-out: 9").size(), 1U);
}

TEST(TracePicture, ADropHasItsReason) {
  const TraceFile file =
      TraceSteps().add(0, 11, "send", 1, kNote).add(3, 10, "drop", 1, kNote, "noRoom").file();
  const std::vector<json> drops = file.events("i", "drop, noRoom: 11");
  ASSERT_EQ(drops.size(), 1U);
  EXPECT_EQ(drops[0]["args"]["reason"], "noRoom");
  EXPECT_EQ(drops[0]["ts"], 3.0);
}

TEST(TracePicture, WhatBeganBeforeOrEndsAfterIsCut) {
  const TraceFile file = TraceSteps()
                             .add(0, 10, "dispatch", 1, kNote)
                             .add(5, 11, "answer", 1, kAsked.response())
                             .add(7, 11, "end", 1, kNote)
                             .add(8, 12, "begin", 1, kOther)
                             .add(9, 12, "send", 1, kAsked)
                             .endAt(30)
                             .file();
  EXPECT_EQ(spanOf(file, "1 one: 11"), std::pair(0.0, 7.0));
  EXPECT_EQ(argumentOf(file, "1 one: 11", "cut"), "begin");
  EXPECT_EQ(spanOf(file, "1 one: 10"), std::pair(8.0, 22.0));
  EXPECT_EQ(argumentOf(file, "1 one: 10", "cut"), "end");
  const std::vector<json> waits = file.events("X", "ask 2 two: 9");
  ASSERT_EQ(waits.size(), 2U);
  EXPECT_EQ(waits[0]["ts"], 0.0);
  EXPECT_EQ(waits[0]["dur"], 5.0);
  EXPECT_EQ(waits[0]["args"]["cut"], "begin");
  EXPECT_EQ(waits[1]["ts"], 9.0);
  EXPECT_EQ(waits[1]["dur"], 21.0);
  EXPECT_EQ(waits[1]["args"]["cut"], "end");
  EXPECT_EQ(waits[1]["args"]["ended"], "not in the trace");
}

TEST(TracePicture, NothingIsMadeUpWhereStepsWereLost) {
  const TraceFile file = TraceSteps()
                             .add(0, 11, "begin", 1, kNote)
                             .add(1, 21, "begin", 2, kOther)
                             .add(2, 12, "begin", 1, kAsked)
                             .lose(4)
                             .add(50, 10, "dispatch", 1, kNote)
                             .add(52, 11, "begin", 1, kAsked)
                             .add(54, 11, "end", 1, kAsked)
                             .add(60, 21, "end", 2, kOther)
                             .add(61, 22, "end", 2, kNote)
                             .endAt(70)
                             .file();
  // Its end was lost.
  EXPECT_EQ(spanOf(file, "1 one: 11"), std::pair(0.0, 2.0));
  // Both are there.
  EXPECT_EQ(spanOf(file, "2 two: 10"), std::pair(1.0, 59.0));
  // Nobody knows what came of it.
  const std::vector<json> handlers = file.events("X", "1 one: 9");
  ASSERT_EQ(handlers.size(), 2U);
  EXPECT_EQ(handlers[0]["ts"], 52.0);
  EXPECT_EQ(handlers[0]["dur"], 2.0);
  EXPECT_EQ(handlers[1]["ts"], 2.0);
  EXPECT_EQ(handlers[1]["dur"], 0.0);
  EXPECT_EQ(handlers[1]["args"]["cut"], "end");
  // Its begin was lost.
  EXPECT_EQ(spanOf(file, "2 two: 11"), std::pair(50.0, 11.0));
}

TEST(TracePicture, NobodyWaitsForTheAnswerToAskLater) {
  const TraceFile file = TraceSteps()
                             .add(0, 11, "begin", 1, kNote)
                             .add(1, 11, "send", 1, kAsked)
                             .add(5, 11, "end", 1, kNote)
                             .add(9, 11, "answer", 1, kAsked.response())
                             .add(10, 11, "begin", 1, kAsked.response())
                             .add(12, 11, "end", 1, kAsked.response())
                             .file();
  EXPECT_TRUE(file.events("X", "ask 2 two: 9").empty());
  EXPECT_EQ(spanOf(file, "send request to 2 two: 9"), std::pair(1.0, 1.0));
  EXPECT_EQ(spanOf(file, "answer from 2 two: 9"), std::pair(9.0, 1.0));
  EXPECT_EQ(spanOf(file, "1 one: 9, answered"), std::pair(10.0, 2.0));
  EXPECT_EQ(phasesOf(file.flow(9, 5)), "stf");
}

TEST(TracePicture, AMarkEndsWhereItsThreadGoesOn) {
  TraceSteps steps;
  steps.add(0, 10, "dispatch", 1, kNote).add(0, 10, "dispatch", 2, kNote);
  steps.add(1, 10, "dispatch", 1, kOther);
  EXPECT_EQ(spanOf(steps.file(), "leader of 1 one: 11"), std::pair(0.0, 0.0));
  EXPECT_EQ(spanOf(steps.file(), "leader of 2 two: 11"), std::pair(0.0, 1.0));
}

TEST(TracePicture, OfNothingIsAFileWithoutSteps) {
  const TraceFile file = TraceSteps().file();
  EXPECT_EQ(file.events("M").size(), 1U);
  EXPECT_TRUE(file.events("X").empty());
}

TEST(TraceLog, EndsWithTheLastStepIfThereAreMoreToRead) {
  TraceSteps steps;
  steps.add(0, 11, "begin", 1, kNote).add(5, 11, "send", 1, kOther);
  steps.more = true;
  steps.add(7, 10, "dispatch", 1, kOther);
  EXPECT_TRUE(steps.log.isMore());
  EXPECT_EQ(spanOf(steps.endAt(30).file(), "1 one: 11"), std::pair(0.0, 7.0));
}

TEST(TraceLog, DoesNotBelieveThatThereIsMoreWhereNothingCame) {
  TraceSteps steps;
  steps.more = true;
  steps.add(0, 11, "begin", 1, kNote);
  EXPECT_TRUE(steps.log.isMore());
  EXPECT_FALSE(steps.lose(0).log.isMore());
}

TEST(TraceLog, TakesNoAnswerThatItDoesNotUnderstand) {
  TraceSteps steps;
  EXPECT_THROW(steps.add(0, 11, "dance", 1, kNote), std::runtime_error);
  EXPECT_THROW(steps.add(0, 11, "send", 256, kNote), std::runtime_error);
  EXPECT_THROW(steps.log.add(Json::Value(Json::objectValue)), std::runtime_error);
  EXPECT_THROW(ctl::TraceLog(Json::Value(Json::objectValue)), std::runtime_error);
}

}  // namespace
}  // namespace qov::test
