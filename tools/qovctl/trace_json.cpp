#include "tools/qovctl/trace_json.h"

#include <json/writer.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "tools/qovctl/trace_flows.h"
#include "tools/qovctl/trace_slices.h"
#include "tools/qovctl/trace_words.h"

namespace qov::ctl {
namespace {

/// One event a line.
class Events {
 public:
  explicit Events(const std::function<void(std::string_view)>& write) : write_(write) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["precision"] = 3;
    builder["precisionType"] = "decimal";
    writer_.reset(builder.newStreamWriter());
    write_("{\"traceEvents\":[");
  }

  void add(const Json::Value& event) {
    write_(empty_ ? "\n" : ",\n");
    empty_ = false;
    write_(textOf(event));
  }

  void end(const Json::Value& about) {
    write_("\n],\n\"displayTimeUnit\":\"ns\",\n\"otherData\":" + textOf(about) + "}\n");
  }

 private:
  std::string textOf(const Json::Value& value) {
    std::ostringstream text;
    writer_->write(value, &text);
    return text.str();
  }

  const std::function<void(std::string_view)>& write_;
  std::unique_ptr<Json::StreamWriter> writer_;
  bool empty_ = true;
};

class Picture {
 public:
  Picture(const TraceLog& log, Events& events) : log_(log), events_(events) {
    for (const TraceStep& step : log.steps()) {
      start_ = start_ == 0 ? step.time : std::min(start_, step.time);
      threads_.insert(step.thread);
    }
  }

  void names() {
    Json::Value process = metadata("process_name");
    process["args"]["name"] = log_.process();
    events_.add(process);
    for (const std::int64_t thread : threads_) {
      Json::Value name = metadata("thread_name");
      name["tid"] = thread;
      name["args"]["name"] = log_.thread(thread);
      events_.add(name);
    }
  }

  void slices(const std::vector<TraceSlice>& slices) {
    for (const TraceSlice& slice : slices) {
      const TraceStep& step = log_.steps()[slice.step()];
      Json::Value event = eventAt(slice.begin, slice.thread, "X", sliceName(log_, slice));
      event["dur"] = static_cast<double>(slice.end - slice.begin) / kMicrosecond;
      event["args"] = arguments(step);
      if (slice.isCut()) {
        event["args"]["cut"] = slice.first ? "end" : "begin";
      }
      if (slice.kind == TraceSlice::Kind::kWait) {
        event["args"]["ended"] = endingText(slice.ending);
      }
      events_.add(event);
    }
  }

  /// Time-outs and drops.
  void instants() {
    for (const TraceStep& step : log_.steps()) {
      if (step.kind != TraceStep::Kind::kTimeOut && step.kind != TraceStep::Kind::kDrop) {
        continue;
      }
      Json::Value event = eventAt(step.time, step.thread, "i", instantName(step));
      event["s"] = "t";
      event["args"] = arguments(step);
      if (step.kind == TraceStep::Kind::kDrop) {
        event["args"]["reason"] = step.reason;
      }
      events_.add(event);
    }
  }

  void flows(const std::vector<TraceFlow>& flows) {
    Json::UInt64 id = 0;
    for (const TraceFlow& flow : flows) {
      ++id;
      for (const TraceFlowPoint& point : flow) {
        const bool last = &point == &flow.back();
        const char* const phase = &point == &flow.front() ? "s" : last ? "f" : "t";
        Json::Value event = eventAt(point.time, point.thread, phase, "message");
        event["id"] = id;
        if (last) {
          event["bp"] = "e";
        }
        event["args"] = arguments(log_.steps()[point.step]);
        events_.add(event);
      }
    }
  }

 private:
  static constexpr double kMicrosecond = 1000;

  Json::Value metadata(const char* name) const {
    Json::Value event(Json::objectValue);
    event["ph"] = "M";
    event["name"] = name;
    event["pid"] = Json::Int64{log_.pid()};
    return event;
  }

  Json::Value eventAt(std::int64_t time, std::int64_t thread, const char* phase,
                      const std::string& name) const {
    Json::Value event(Json::objectValue);
    event["ph"] = phase;
    event["name"] = name;
    event["cat"] = "message";
    event["pid"] = Json::Int64{log_.pid()};
    event["tid"] = Json::Int64{thread};
    event["ts"] = static_cast<double>(time - start_) / kMicrosecond;
    return event;
  }

  Json::Value arguments(const TraceStep& step) const {
    Json::Value all(Json::objectValue);
    all["opc"] = Json::UInt64{step.operation};
    all["sn"] = step.serial;
    all["type"] = typeName(step.type);
    all["from"] = log_.module(step.from);
    all["to"] = log_.module(step.to);
    return all;
  }

  const TraceLog& log_;
  Events& events_;
  std::int64_t start_ = 0;
  std::set<std::int64_t> threads_;
};

}  // namespace

void writeTraceJson(const TraceLog& log, const Json::Value& about,
                    const std::function<void(std::string_view)>& write) {
  Events events(write);
  Picture picture(log, events);
  const std::vector<TraceSlice> slices = slicesOf(log);
  picture.names();
  picture.slices(slices);
  picture.instants();
  picture.flows(flowsOf(log, slices));
  events.end(about);
}

}  // namespace qov::ctl
