#include "modules/status/answers.h"

#include <json/reader.h>
#include <json/writer.h>
#include <qovpub/qov_log.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>

#include "modules/status/activity_document.h"
#include "modules/status/json_parts.h"
#include "modules/status/level.h"
#include "modules/status/metrics.h"

namespace qov::status {
namespace {

/// Deeper than any request is nested.
constexpr int kDeepest = 16;

std::string lineOf(const Json::Value& document) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return Json::writeString(writer, document) + "\n";
}

/// Null for what is no JSON.
Json::Value parse(std::string_view text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = kDeepest;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value parsed;
  try {
    const bool good = reader->parse(text.data(), text.data() + text.size(), &parsed, nullptr);
    return good ? parsed : Json::Value();
  } catch (const Json::Exception&) {
    return {};  // nested too deeply
  }
}

Json::Value errorOf(const char* why) {
  return object({{"error", why}});
}

bool isHandled(int signum) {
  struct sigaction action {};
  return ::sigaction(signum, nullptr, &action) == 0 && action.sa_handler != SIG_DFL;
}

}  // namespace

std::optional<std::string> Answers::answer(std::string_view request, const ClientCounts& clients,
                                           Kept& kept) {
  const Json::Value asked = parse(request);
  if (!asked.isObject() || !asked["request"].isString()) {
    return std::nullopt;
  }
  const std::string name = asked["request"].asString();
  if (name == "status") {
    return lineOf(statusDocument(start_, clients));
  }
  if (name == "modules") {
    return lineOf(moduleList());
  }
  if (name == "pending") {
    return lineOf(pendingDocument(activity_));
  }
  if (name == "slow") {
    return lineOf(slowDocument(activity_));
  }
  if (name == "metrics") {
    return lineOf(metricsDocument(start_, clients));
  }
  if (name == "log-level") {
    return lineOf(changeLevel(asked));
  }
  if (name == "reload") {
    return lineOf(reload());
  }
  if (const auto trace = trace_.answer(name, asked, kept)) {
    return lineOf(*trace);
  }
  return lineOf(errorOf("no such request"));
}

std::string Answers::metricsForFile(const ClientCounts& clients) const {
  return metricsText(MetricsForm::kPrometheus, start_, clients);
}

Json::Value Answers::changeLevel(const Json::Value& request) const {
  if (request.isMember("level")) {
    const Json::Value& level = request["level"];
    if (!level.isUInt() || level.asUInt() > kHighestLevel) {
      return errorOf("no level: 0 to 5");
    }
    changeLevel(level.asInt());
  }
  return object({{"level", logLevel()}});
}

void Answers::changeLevel(int level) const {
  // While either level lets it through: a log that falls silent has the reason as its last record.
  setLogLevel(std::min(level, logLevel()));
  QOV_GUARD(guard, kitId_);
  QOV_INFO(guard, 2, "The log level is %d until it is set or read again", level);
  setLogLevel(level);
}

Json::Value Answers::reload() const {
  // To the process, whose main thread takes it: what it does is not for other threads. A process
  // that does not handle it would end.
  if (!isHandled(SIGUSR1) || ::kill(::getpid(), SIGUSR1) != 0) {
    return errorOf("this process does not take SIGUSR1");
  }
  return object({{"reload", "requested"}});
}

}  // namespace qov::status
