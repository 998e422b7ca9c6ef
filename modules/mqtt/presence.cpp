#include "modules/mqtt/presence.h"

#include <json/value.h>
#include <qovpub/qov_stats.h>
#include <qovpub/qov_version.h>

#include <array>
#include <chrono>
#include <ctime>

#include "modules/common/json_object.h"

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

/// What has become of requests. It changes with every one of them, and all who read the document
/// get it anew then: so it is counted once a minute.
class RequestCounts {
 public:
  explicit RequestCounts(const Requests::Counts* counts) : counts_(counts) {}

  /// Null while none has come.
  const Json::Value& ofLately() {
    const auto now = std::chrono::steady_clock::now();
    if (json_.isNull() || now >= takenAt_ + std::chrono::minutes(1)) {
      json_ = ofNow();
      takenAt_ = now;
    }
    return json_;
  }

  Json::Value ofNow() const {
    if (counts_ == nullptr || counts_->received == 0) {
      return {};
    }
    Json::Value json(Json::objectValue);
    json["received"] = common::jsonNumber(counts_->received);
    json["answered"] = common::jsonNumber(counts_->answered);
    json["dropped"] = common::jsonNumber(counts_->unanswerable);
    json["lost"] = common::jsonNumber(counts_->lost);
    Json::Value& refused = json["refused"] = Json::Value(Json::objectValue);
    for (std::size_t i = 0; i < kRequestErrors; ++i) {
      if (const std::uint64_t count = counts_->refused[i]; count > 0) {
        refused[nameOf(static_cast<RequestError>(i))] = common::jsonNumber(count);
      }
    }
    return json;
  }

 private:
  const Requests::Counts* counts_;
  Json::Value json_;
  std::chrono::steady_clock::time_point takenAt_;
};

void add(Json::Value& document, const Json::Value& requests) {
  if (!requests.isNull()) {
    document["requests"] = requests;
  }
}

}  // namespace

Presence presenceOfAgent(const std::string& topic, const Requests::Counts* requests) {
  const auto online = [since = utcNow(), counts = RequestCounts(requests)]() mutable {
    Json::Value document(Json::objectValue);
    document["online"] = true;
    document["version"] = QOV_Version();
    document["since"] = since;
    document["modules"] = modules();
    add(document, counts.ofLately());
    return common::jsonLine(document);
  };
  const auto offline = [counts = RequestCounts(requests)] {
    Json::Value document(Json::objectValue);
    document["online"] = false;
    document["since"] = utcNow();
    add(document, counts.ofNow());
    return common::jsonLine(document);
  };
  return {topic, online, offline};
}

}  // namespace qov::mqtt
