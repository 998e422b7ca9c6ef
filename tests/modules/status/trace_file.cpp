#include "tests/modules/status/trace_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>

namespace qov::test {
namespace {

using nlohmann::json;

/// Times are thousandths of a microsecond, which a double does not hold to the letter.
std::int64_t nanoseconds(const json& microseconds) {
  return std::llround(microseconds.get<double>() * 1000);
}

std::int64_t beginOf(const json& event) {
  return nanoseconds(event["ts"]);
}

std::int64_t endOf(const json& slice) {
  return beginOf(slice) + nanoseconds(slice["dur"]);
}

/// When the slices of one thread begin, and when the last of those that have begun by then ends.
using SlicesOfThread = std::map<std::int64_t, std::int64_t>;

/// `slices` are in the order of their begins, thread by thread.
std::map<std::int64_t, SlicesOfThread> byThread(const std::vector<json>& slices) {
  std::map<std::int64_t, SlicesOfThread> threads;
  for (const json& slice : slices) {
    SlicesOfThread& known = threads[slice["tid"]];
    const std::int64_t latest = known.empty() ? 0 : known.rbegin()->second;
    known[beginOf(slice)] = std::max(latest, endOf(slice));
  }
  return threads;
}

/// Whether a slice is there at that time.
bool isAt(const SlicesOfThread& slices, std::int64_t time) {
  const auto later = slices.upper_bound(time);
  return later != slices.begin() && std::prev(later)->second >= time;
}

void checkTime(const json& event) {
  EXPECT_TRUE(event["ts"].is_number() && event["ts"] >= 0) << event;
  EXPECT_TRUE(event["tid"].is_number_integer()) << event;
  EXPECT_TRUE(event["cat"].is_string()) << event;
}

void checkMetadata(const json& event) {
  EXPECT_TRUE(event["name"] == "process_name" || event["name"] == "thread_name") << event;
  EXPECT_EQ(event["name"] == "thread_name", event.contains("tid")) << event;
  EXPECT_TRUE(event["args"]["name"].is_string()) << event;
}

}  // namespace

TraceFile::TraceFile(const std::string& text) : document_(json::parse(text)) {
  EXPECT_TRUE(document_["traceEvents"].is_array());
  EXPECT_EQ(document_["displayTimeUnit"], "ns");
  checkFields();
  checkNesting();
  checkFlows();
}

std::vector<json> TraceFile::events(const std::string& phase) const {
  std::vector<json> found;
  for (const json& event : document_["traceEvents"]) {
    if (event["ph"] == phase) {
      found.push_back(event);
    }
  }
  return found;
}

std::vector<json> TraceFile::events(const std::string& phase, const std::string& name) const {
  std::vector<json> found = events(phase);
  found.erase(std::remove_if(found.begin(), found.end(),
                             [&](const json& event) { return event["name"] != name; }),
              found.end());
  return found;
}

std::vector<json> TraceFile::flow(unsigned int operation, unsigned int serial) const {
  std::vector<json> found;
  for (const json& event : document_["traceEvents"]) {
    if (event.contains("id") && event["args"]["opc"] == operation &&
        event["args"]["sn"] == serial) {
      found.push_back(event);
    }
  }
  return found;
}

std::string TraceFile::threadOf(const json& event) const {
  for (const json& name : events("M", "thread_name")) {
    if (name["tid"] == event["tid"]) {
      return name["args"]["name"];
    }
  }
  return {};
}

void TraceFile::checkFields() const {
  for (const json& event : document_["traceEvents"]) {
    const std::string phase = event.value("ph", "");
    EXPECT_TRUE(event["pid"].is_number_integer()) << event;
    EXPECT_TRUE(event["name"].is_string()) << event;
    if (phase == "M") {
      checkMetadata(event);
      continue;
    }
    checkTime(event);
    if (phase == "X") {
      EXPECT_GE(event["dur"], 0) << event;
    } else if (phase == "i") {
      EXPECT_EQ(event["s"], "t") << event;
    } else {
      EXPECT_TRUE(phase == "s" || phase == "t" || phase == "f") << event;
      EXPECT_TRUE(event["id"].is_number_unsigned()) << event;
    }
  }
}

void TraceFile::checkNesting() const {
  std::map<std::int64_t, std::vector<json>> open;
  for (const json& slice : events("X")) {
    std::vector<json>& outer = open[slice["tid"]];
    while (!outer.empty() && endOf(outer.back()) <= beginOf(slice)) {
      outer.pop_back();
    }
    if (!outer.empty()) {
      EXPECT_LE(endOf(slice), endOf(outer.back())) << slice << outer.back();
      EXPECT_GE(beginOf(slice), beginOf(outer.back())) << slice << outer.back();
    }
    outer.push_back(slice);
  }
}

void TraceFile::checkFlows() const {
  std::map<std::uint64_t, std::vector<json>> flows;
  const auto slices = byThread(events("X"));
  for (const json& event : document_["traceEvents"]) {
    if (!event.contains("id")) {
      continue;
    }
    flows[event["id"]].push_back(event);
    EXPECT_TRUE(isAt(slices.at(event["tid"]), beginOf(event))) << event;
  }
  for (const auto& [id, points] : flows) {
    ASSERT_GE(points.size(), 2U) << id;
    EXPECT_EQ(points.front()["ph"], "s");
    EXPECT_EQ(points.back()["ph"], "f");
    EXPECT_EQ(points.back()["bp"], "e");
    for (std::size_t i = 1; i < points.size(); ++i) {
      // Viewers join what has one category, name and id.
      EXPECT_EQ(points[i]["cat"], points[0]["cat"]);
      EXPECT_EQ(points[i]["name"], points[0]["name"]);
      EXPECT_LE(beginOf(points[i - 1]), beginOf(points[i])) << points[i];
      EXPECT_TRUE(i + 1 == points.size() || points[i]["ph"] == "t") << points[i];
    }
  }
}

}  // namespace qov::test
