// What "qovctl agent top" has on its screen.
#include "tools/qovctl/top_screen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "modules/common/json_object.h"
#include "tools/qovctl/top_document.h"
#include "tools/qovctl/top_table.h"

namespace qov::ctl {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

constexpr ScreenSize kLarge{1000, 1000};

Json::Value moduleOf(int id, const char* more = "{}") {
  Json::Value module = common::parseJson(R"({"name": "inventory", "state": "idle",
      "queue": {"blocks": 0, "highestBlocks": 7}, "workers": 4, "busy": 1,
      "handled": {"count": 100}, "timedOut": 2, "dropped": {"noRoom": 0},
      "pending": {"count": 0, "oldest": 0}})");
  module["id"] = id;
  const Json::Value changes = common::parseJson(more);
  for (const std::string& key : changes.getMemberNames()) {
    module[key] = changes[key];
  }
  return module;
}

Json::Value statusOf(const std::vector<Json::Value>& modules) {
  Json::Value status = common::parseJson(R"({"process": "devagent", "pid": 4711, "version": "1.0.0",
      "uptime": 61, "log": {"level": 2}, "modules": [], "links": []})");
  for (const Json::Value& module : modules) {
    status["modules"].append(module);
  }
  return status;
}

Json::Value nothingPends() {
  return common::parseJson(R"({"modules": [], "requests": [], "handlers": [], "circles": []})");
}

Json::Value nothingIsSlow() {
  return common::parseJson(R"({"modules": [], "handlers": []})");
}

Json::Value documentOf(const std::vector<Json::Value>& modules) {
  return topDocument(statusOf(modules), nothingPends(), nothingIsSlow(), {});
}

/// All that top has to show.
Json::Value busyDocument(int modules = 2) {
  std::vector<Json::Value> all;
  for (int id = 1; id <= modules; ++id) {
    all.push_back(moduleOf(id));
  }
  Json::Value status = statusOf(all);
  status["configuration"] = common::parseJson(R"({"file": "/a.cfg", "changedSinceStart": true})");
  status["links"] =
      common::parseJson(R"([{"endpoint": "mmt:19001", "connected": false, "since": 4.25,
      "connections": 2, "lastError": "Connection refused"}])");
  const Json::Value pending = common::parseJson(R"({
      "modules": [{"id": 1, "name": "inventory"}, {"id": 2, "name": "collector"}],
      "requests": [{"module": 1, "thread": {"name": "m1-worker-1"}, "receiver": {"module": 2},
                    "operation": 9, "waiting": 4.25, "timeout": 30,
                    "handler": {"name": "m2-worker-1"}},
                   {"module": 2, "thread": null, "receiver": {"module": 1}, "operation": 10,
                    "waiting": 61, "timeout": null, "handler": null}],
      "handlers": [{"module": 2, "thread": {"name": "m2-worker-1"}, "operation": 9,
                    "sender": {"module": 1}, "continuation": false, "running": 4.25,
                    "waitsFor": null}],
      "circles": [[1, 2, 1]]})");
  const Json::Value slow = common::parseJson(R"({"modules": [{"id": 1, "name": "inventory"}],
      "handlers": [{"module": 1, "operation": 7, "continuation": false, "count": 1200,
                    "mean": 0.0042, "median": 0.004, "percentile99": 0.2, "longest": 4.25}]})");
  return topDocument(status, pending, slow, {});
}

std::string textOf(const Screen& screen) {
  std::string text;
  for (const ScreenLine& line : screen) {
    text += line.text + "\n";
  }
  return text;
}

std::string shown(const Json::Value& document, ScreenSize size = kLarge,
                  TopOrder order = TopOrder::kId) {
  return textOf(topScreen(document, order, size));
}

/// Of the first module's, after `before`.
Json::Value rateOf(const Json::Value& now, const Json::Value& before) {
  const Json::Value first = topDocument(before, nothingPends(), nothingIsSlow(), {});
  return topDocument(now, nothingPends(), nothingIsSlow(),
                     first)["status"]["modules"][0]["handledPerSecond"];
}

Json::Value statusAt(double uptime, int handled) {
  Json::Value status = statusOf({moduleOf(1)});
  status["uptime"] = uptime;
  status["modules"][0]["handled"]["count"] = handled;
  return status;
}

TEST(TopDocument, HasWhatIsHandledPerSecondOfTheAgentsTime) {
  EXPECT_EQ(rateOf(statusAt(12, 150), statusAt(10, 100)), 25.0);
  EXPECT_EQ(rateOf(statusAt(12, 100), statusAt(10, 100)), 0.0);
}

TEST(TopDocument, KnowsNoRateOfWhatWasNotThereBefore) {
  Json::Value other = statusAt(10, 100);
  other["pid"] = 4712;
  EXPECT_TRUE(rateOf(statusAt(12, 150), other).isNull());
  Json::Value another = statusAt(10, 100);
  another["modules"][0]["id"] = 2;
  EXPECT_TRUE(rateOf(statusAt(12, 150), another).isNull());
  EXPECT_TRUE(rateOf(statusAt(12, 99), statusAt(10, 100)).isNull());
  EXPECT_TRUE(rateOf(statusAt(10, 150), statusAt(10, 100)).isNull());
  EXPECT_TRUE(documentOf({moduleOf(1)})["status"]["modules"][0]["handledPerSecond"].isNull());
}

TEST(TopDocument, HasTheThreeAnswers) {
  const Json::Value document = busyDocument();
  EXPECT_EQ(document["status"]["pid"], 4711);
  EXPECT_EQ(document["pending"]["circles"].size(), 1u);
  EXPECT_EQ(document["slow"]["handlers"].size(), 1u);
}

TEST(TopDocument, RefusesWhatIsOfAnotherType) {
  EXPECT_THROW(topDocument(common::parseJson("{}"), {}, {}, {}), common::BadJson);
  EXPECT_THROW(topDocument(common::parseJson(R"({"modules": [7]})"), {}, {}, {}), common::BadJson);
}

TEST(TopScreen, HasAllTablesWhereThereIsRoom) {
  EXPECT_EQ(shown(busyDocument()),
            R"(devagent  pid 4711  version 1.0.0  up 1m 01s  log level 2
busy 2/8  queue 0  handled/s 0  timed out 4  dropped 0
changed since the start: /a.cfg

id  module     state    queue  highest  busy   handled  handled/s  pending  oldest   )"
            R"(timed out  refused  dropped
1   inventory  idle     0      7        1/4    100      -          0        -        )"
            R"(2          -        -
2   inventory  idle     0      7        1/4    100      -          0        -        )"
            R"(2          -        -

modules that wait for each other
1 inventory -> 2 collector -> 1 inventory

request  from         thread       to           for      time-out  handled by
10       2 collector  -            1 inventory  1m 01s   -         -
9        1 inventory  m1-worker-1  2 collector  4.2s     30.0s     m2-worker-1

running  in           thread       from         for      waits for
9        2 collector  m2-worker-1  1 inventory  4.2s     -

slowest  in           count  mean   half within  99% within  longest
7        1 inventory  1200   4.2ms  4.0ms        200ms       4.2s

link       state          for      connections  last error
mmt:19001  not connected  4.2s     2            Connection refused
)");
}

TEST(TopScreen, LeavesOutColumnsThatMatterLessAtEightyCharacters) {
  EXPECT_EQ(shown(busyDocument(), {80, 24}),
            R"(devagent  pid 4711  version 1.0.0  up 1m 01s  log level 2
busy 2/8  queue 0  handled/s 0  timed out 4  dropped 0
changed since the start: /a.cfg

id  module     state    queue  busy   handled/s  pending  oldest   dropped
1   inventory  idle     0      1/4    -          0        -        -
2   inventory  idle     0      1/4    -          0        -        -

modules that wait for each other
1 inventory -> 2 collector -> 1 inventory

request  from         thread       to           for      time-out  handled by
10       2 collector  -            1 inventory  1m 01s   -         -
9        1 inventory  m1-worker-1  2 collector  4.2s     30.0s     m2-worker-1

running  in           thread       from         for      waits for
9        2 collector  m2-worker-1  1 inventory  4.2s     -

slowest  in           count  mean   half within  99% within  longest
7        1 inventory  1200   4.2ms  4.0ms        200ms       4.2s

link       state          for      connections  last error
mmt:19001  not connected  4.2s     2            Connection refused
)");
}

TEST(TopScreen, TellsWhatTheAgentHasLeftOut) {
  Json::Value document = busyDocument();
  document["pending"]["moreRequests"] = common::parseJson(R"([{"module": 1, "count": 12}])");
  document["pending"]["moreHandlers"] = common::parseJson(R"([{"module": 3, "count": 4}])");
  EXPECT_THAT(shown(document), HasSubstr(R"(
left out by the agent
requests: and 12 more of 1 inventory
running: and 4 more of 3
)"));
}

TEST(TopScreen, CutsLinesWhereItIsNarrow) {
  EXPECT_EQ(shown(busyDocument(1), {40, 12}),
            R"(devagent  pid 4711  version 1.0.0  up 1>
busy 1/4  queue 0  handled/s 0  timed o>
changed since the start: /a.cfg

id  module     state    queue  busy   h>
1   inventory  idle     0      1/4    ->

modules that wait for each other
1 inventory -> 2 collector -> 1 invento>

request  from         to           for
... 2 more
)");
}

TEST(TopScreen, CountsTheRowsThatHaveNoRoom) {
  const std::string text = shown(busyDocument(40), {80, 24});
  EXPECT_THAT(text, HasSubstr("\n2   inventory"));
  EXPECT_THAT(text, HasSubstr("\n... 38 more\n"));
  EXPECT_THAT(text, HasSubstr("\nslowest "));
  EXPECT_THAT(text, HasSubstr("\nlink "));
}

TEST(TopScreen, IsNeverLargerThanTheTerminal) {
  const Json::Value document = busyDocument(40);
  for (const std::size_t columns : {1U, 2U, 39U, 80U, 200U}) {
    for (const std::size_t rows : {0U, 1U, 2U, 3U, 6U, 7U, 8U, 24U, 25U, 100U}) {
      const Screen screen = topScreen(document, TopOrder::kId, {columns, rows});
      ASSERT_LE(screen.size(), rows);
      for (const ScreenLine& line : screen) {
        ASSERT_LE(line.text.size(), columns) << line.text;
      }
    }
  }
}

TEST(TopScreen, SortsModulesByAFigure) {
  const Json::Value document = documentOf(
      {moduleOf(1, R"({"queue": {"blocks": 3}, "dropped": {"noRoom": 1, "stopped": 1}})"),
       moduleOf(2, R"({"busy": 3, "dropped": {"noRoom": 1}})"),
       moduleOf(3, R"({"pending": {"count": 1, "oldest": 0.5}})")});
  const auto orderOf = [&](TopOrder order) {
    const std::string text = shown(document, kLarge, order);
    std::string ids;
    for (std::size_t at = text.find("\nid "); (at = text.find('\n', at + 1)) + 1 < text.size();) {
      ids += text[at + 1];
    }
    return ids;
  };
  EXPECT_EQ(orderOf(TopOrder::kId), "123");
  EXPECT_EQ(orderOf(TopOrder::kQueue), "123");
  EXPECT_EQ(orderOf(TopOrder::kBusy), "213");
  EXPECT_EQ(orderOf(TopOrder::kOldest), "312");
  EXPECT_EQ(orderOf(TopOrder::kDropped), "123");
}

TEST(TopScreen, SortsModulesByWhatTheyHandleNow) {
  Json::Value document = documentOf({moduleOf(1), moduleOf(2)});
  document["status"]["modules"][1]["handledPerSecond"] = 0.25;
  const std::string text = shown(document, kLarge, TopOrder::kHandled);
  EXPECT_LT(text.find("\n2 "), text.find("\n1 "));
}

TEST(TopScreen, TellsRatesInAsManyDigitsAsMatter) {
  const auto cellOf = [](double rate) {
    Json::Value document = documentOf({moduleOf(1)});
    document["status"]["modules"][0]["handledPerSecond"] = rate;
    const std::string text = shown(document);
    const std::size_t at = text.find("handled/s ") + 10;
    return text.substr(at, text.find(' ', at) - at);
  };
  EXPECT_EQ(cellOf(0), "0");
  EXPECT_EQ(cellOf(0.25), "0.2");
  EXPECT_EQ(cellOf(31.4), "31");
  EXPECT_EQ(cellOf(1e300), "1000000000000000");
}

TEST(TopScreen, EachOrderComesOnce) {
  std::vector<std::string> names;
  TopOrder order = TopOrder::kId;
  do {
    names.emplace_back(nameOf(order));
    order = after(order);
  } while (order != TopOrder::kId);
  EXPECT_THAT(names, ElementsAre("id", "queue", "busy", "handled/s", "oldest", "dropped"));
}

TEST(TopScreen, HasNothingButPrintableAscii) {
  const Json::Value document =
      documentOf({moduleOf(1, R"({"name": "a\u001b[2Jb", "state": "gr\u00fc\u009bn"})")});
  const std::string text = shown(document);
  EXPECT_THAT(text, HasSubstr(R"(a\x1b[2Jb)"));
  EXPECT_THAT(text, HasSubstr("gr??"));
  EXPECT_THAT(text, Each(testing::AnyOf('\n', testing::AllOf(testing::Ge(' '), testing::Le('~')))));
  EXPECT_EQ(textOf(notice("gr\xC3\xBCn\x1b", 80)), "gr??n?\n");
}

TEST(TopScreen, MakesHeadingsStandOut) {
  for (const ScreenLine& line : topScreen(busyDocument(), TopOrder::kId, kLarge)) {
    EXPECT_EQ(line.strong, line.text.find("id ") == 0 || line.text.find("modules") == 0 ||
                               line.text.find("request") == 0 || line.text.find("running") == 0 ||
                               line.text.find("slowest") == 0 || line.text.find("link") == 0 ||
                               line.text.find("changed") == 0)
        << line.text;
  }
}

TEST(TopScreen, BreaksALongNotice) {
  EXPECT_EQ(textOf(notice("no connection", 5)), "no co\nnnect\nion\n");
  EXPECT_THAT(notice("no connection", 0), SizeIs(0));
}

TEST(TopScreen, LeavesOutWhatTheAgentDoesNotTell) {
  const std::string text = shown(
      topDocument(common::parseJson(R"({"modules": [{}]})"), nothingPends(), nothingIsSlow(), {}));
  EXPECT_THAT(text, HasSubstr("-  pid -  version -"));
  EXPECT_THAT(text, Not(HasSubstr("link")));
}

TEST(TopScreen, RefusesWhatIsOfAnotherType) {
  EXPECT_THROW(shown(common::parseJson("{}")), common::BadJson);
  Json::Value document = busyDocument();
  document["pending"]["requests"] = 7;
  EXPECT_THROW(shown(document), common::BadJson);
}

TEST(TopTable, EachTableHasARowBeforeOneHasMore) {
  EXPECT_THAT(rowsThatFit({10, 5, 5}, 9), ElementsAre(1, 1, 1));
  EXPECT_THAT(rowsThatFit({10, 5, 5}, 8), ElementsAre(3, 1, 0));
  EXPECT_THAT(rowsThatFit({10, 5, 5}, 13), ElementsAre(3, 2, 2));
  EXPECT_THAT(rowsThatFit({10, 0, 5}, 100), ElementsAre(10, 0, 5));
  EXPECT_THAT(rowsThatFit({10}, 2), ElementsAre(0));
}

TEST(TopTable, TheLastLineTellsHowManyAreMissing) {
  EXPECT_THAT(firstLines({"a", "b", "c"}, 3), ElementsAre("a", "b", "c"));
  EXPECT_THAT(firstLines({"a", "b", "c"}, 2), ElementsAre("a", "... 2 more"));
  EXPECT_THAT(firstLines({"a", "b", "c"}, 1), ElementsAre("... 3 more"));
}

TEST(TopTable, ShortensWhatIsLongBeforeItLeavesOutFigures) {
  const std::string name(60, 'x');
  EXPECT_THAT(fittingLines({{"link", "state", "connections"}, {name, "up", "1"}}, 60),
              ElementsAre("link                  state    connections",
                          std::string(19, 'x') + ">  up       1"));
}

}  // namespace
}  // namespace qov::ctl
