#include "modules/status/answers.h"

#include <qovpub/qov_log.h>
#include <unistd.h>

#include <csignal>

#include "modules/status/level.h"

namespace qov::status {
namespace {

using Json = nlohmann::ordered_json;

/// Names come from modules, whose authors may write them in any encoding.
std::string lineOf(const Json& document) {
  return document.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json errorOf(const std::string& why) {
  return {{"error", why}};
}

}  // namespace

std::optional<std::string> Answers::answer(std::string_view request,
                                           const ClientCounts& clients) const {
  const nlohmann::json asked = nlohmann::json::parse(request, nullptr, false);
  const auto name = asked.find("request");
  if (!asked.is_object() || name == asked.end() || !name->is_string()) {
    return std::nullopt;
  }
  if (*name == "status") {
    return lineOf(statusDocument(start_, clients));
  }
  if (*name == "modules") {
    return lineOf(moduleList());
  }
  if (*name == "log-level") {
    return lineOf(changeLevel(asked));
  }
  if (*name == "reload") {
    return lineOf(reload());
  }
  return lineOf(errorOf("no such request"));
}

Json Answers::changeLevel(const nlohmann::json& request) const {
  if (const auto level = request.find("level"); level != request.end()) {
    if (!level->is_number_unsigned() || level->get<std::uint64_t>() > kHighestLevel) {
      return errorOf("no level: 0 to 5");
    }
    setLogLevel(level->get<int>());
    QOV_GUARD(guard, kitId_);
    QOV_INFO(guard, 2, "The log level is %d until it is set or read again", logLevel());
  }
  return {{"level", logLevel()}};
}

Json Answers::reload() const {
  // To the process, whose main thread takes it: what it does is not for other threads.
  if (::kill(::getpid(), SIGUSR1) != 0) {
    return errorOf("the signal cannot be sent");
  }
  return {{"reload", "requested"}};
}

}  // namespace qov::status
