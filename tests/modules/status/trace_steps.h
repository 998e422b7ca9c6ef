#ifndef QOV_TESTS_MODULES_STATUS_TRACE_STEPS_H
#define QOV_TESTS_MODULES_STATUS_TRACE_STEPS_H

#include <cstdint>
#include <string>

#include "tests/modules/status/trace_file.h"
#include "tools/qovctl/trace_json.h"
#include "tools/qovctl/trace_log.h"

namespace qov::test {

/// Makes a log of steps as an agent tells them: of modules 1 "one" and 2 "two", whose threads 11,
/// 12 and 21, 22 are named m1-worker-1 and so on.
class TraceSteps {
 public:
  static constexpr unsigned int kRequest = 1;
  static constexpr unsigned int kResponse = 2;
  static constexpr unsigned int kNotice = 3;

  struct Message {
    unsigned int type;
    unsigned int from;
    unsigned int to;
    std::uint32_t serial;
    std::uint64_t operation;

    Message response() const { return {kResponse, to, from, serial, operation}; }
  };

  TraceSteps() : log(start()) {}

  /// A step `microseconds` after the first possible one.
  TraceSteps& add(std::int64_t microseconds, int thread, const char* step, int module,
                  const Message& message, const char* reason = nullptr) {
    Json::Value values(Json::arrayValue);
    values.append(Json::Int64{kFirst + microseconds * 1000});
    values.append(thread);
    values.append(step);
    values.append(module);
    values.append(reason != nullptr ? Json::Value(reason) : Json::Value());
    values.append(message.type);
    values.append(message.from);
    values.append(message.to);
    values.append(message.serial);
    values.append(Json::UInt64{message.operation});
    Json::Value steps(Json::arrayValue);
    steps.append(values);
    log.add(part(steps, 0));
    return *this;
  }

  TraceSteps& lose(unsigned int count) {
    log.add(part(Json::Value(Json::arrayValue), count));
    return *this;
  }

  TraceSteps& endAt(std::int64_t microseconds) {
    log.endAt(kFirst + microseconds * 1000);
    return *this;
  }

  /// What is written of it, checked.
  TraceFile file() const {
    std::string text;
    ctl::writeTraceJson(log, Json::Value(Json::objectValue),
                        [&text](std::string_view piece) { text += piece; });
    return TraceFile(text);
  }

  ctl::TraceLog log;
  bool more = false;  ///< what the agent tells of the next ones

 private:
  static constexpr std::int64_t kFirst = 5000000000000;

  static Json::Value start() {
    Json::Value document(Json::objectValue);
    document["process"] = "agent";
    document["pid"] = 7;
    for (const int id : {1, 2}) {
      Json::Value module(Json::objectValue);
      module["id"] = id;
      module["name"] = id == 1 ? "one" : "two";
      document["modules"].append(module);
    }
    return document;
  }

  /// The static tasks' threads 31 and 32 have one name.
  Json::Value part(const Json::Value& steps, unsigned int lost) const {
    Json::Value document(Json::objectValue);
    document["more"] = more;
    for (const char* field : {"time", "thread", "step", "module", "reason", "type", "from", "to",
                              "serial", "operation"}) {
      document["fields"].append(field);
    }
    document["steps"] = steps;
    document["lost"] = lost;
    for (const int thread : {11, 12, 21, 22}) {
      document["threads"][std::to_string(thread)] =
          "m" + std::to_string(thread / 10) + "-worker-" + std::to_string(thread % 10);
    }
    document["threads"]["31"] = document["threads"]["32"] = "m1-static";
    return document;
  }
};

}  // namespace qov::test

#endif
