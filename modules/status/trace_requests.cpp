#include "modules/status/trace_requests.h"

#include <qovpub/qov_trace.h>
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include "modules/status/status_document.h"

namespace qov::status {
namespace {

constexpr unsigned int kHighestModule = 255;

Json::Value errorOf(const char* why) {
  Json::Value object(Json::objectValue);
  object["error"] = why;
  return object;
}

}  // namespace

std::optional<Json::Value> TraceRequests::answer(const std::string& name,
                                                 const Json::Value& request, Kept& kept) {
  if (name == "trace-start") {
    return start(request, kept);
  }
  if (name != "trace-read" && name != "trace-stop") {
    return std::nullopt;
  }
  const std::shared_ptr<Recording> recording = recording_.lock();
  if (recording == nullptr || recording != kept) {
    return errorOf("this connection has no trace: trace-start comes first");
  }
  if (name == "trace-stop") {
    recording->stop();
    Json::Value stopped(Json::objectValue);
    stopped["time"] = traceTimeNow();
    return stopped;
  }
  return recording->read();
}

Json::Value TraceRequests::start(const Json::Value& request, Kept& kept) {
  std::optional<std::uint8_t> module;
  if (request.isMember("module")) {
    const Json::Value& id = request["module"];
    if (!id.isUInt() || id.asUInt() > kHighestModule) {
      return errorOf("no module's id: 0 to 255");
    }
    module = static_cast<std::uint8_t>(id.asUInt());
  }
  if (!recording_.expired()) {
    return errorOf("the trace is on already, for this client or another one");
  }
  if (QOVMessageTrace::isOn()) {
    return errorOf("the trace is on already, by the agent's own doing");
  }
  Json::Value started = moduleList();
  started["process"] = QOV_Utility::getProcessName();
  started["pid"] = ::getpid();
  const auto recording = std::make_shared<Recording>(module);
  recording_ = recording;
  kept = recording;
  return started;
}

}  // namespace qov::status
