#include "modules/mqtt/presence.h"

#include <json/value.h>
#include <json/writer.h>
#include <qovpub/qov_stats.h>
#include <qovpub/qov_version.h>

#include <array>
#include <ctime>

namespace qov::mqtt {
namespace {

/// As 2026-01-05T07:03:09Z.
std::string utcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%FT%TZ", &parts);
  return {text.data(), length};
}

std::string textOf(const Json::Value& document) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return Json::writeString(writer, document);
}

Json::Value modules() {
  Json::Value all(Json::arrayValue);
  for (const QOVModuleStats& stats : getModuleStats()) {
    Json::Value module(Json::objectValue);
    module["id"] = stats.moduleId_;
    module["name"] = stats.name_;
    all.append(module);
  }
  return all;
}

}  // namespace

Presence presenceOfAgent(const std::string& topic) {
  const auto online = [since = utcNow()] {
    Json::Value document(Json::objectValue);
    document["online"] = true;
    document["version"] = QOV_Version();
    document["since"] = since;
    document["modules"] = modules();
    return textOf(document);
  };
  const auto offline = [] {
    Json::Value document(Json::objectValue);
    document["online"] = false;
    document["since"] = utcNow();
    return textOf(document);
  };
  return {topic, online, offline};
}

}  // namespace qov::mqtt
