#include "modules/status/status_document.h"

#include <qovpub/qov_link_stats.h>
#include <qovpub/qov_utility.h>
#include <qovpub/qov_version.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>
#include <utility>

#include "modules/status/level.h"

namespace qov::status {
namespace {

using Json = nlohmann::ordered_json;

double secondsOf(std::chrono::nanoseconds span) {
  return std::chrono::duration<double>(span).count();
}

std::string textOf(std::time_t time) {
  std::tm parts{};
  std::array<char, 32> text{};
  ::gmtime_r(&time, &parts);
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

/// When the process configuration file was changed; 0 without one.
std::time_t configurationTime() {
  struct stat file {};
  const bool there = ::stat(QOV_Utility::getProcessCfgFileName().c_str(), &file) == 0;
  return there ? file.st_mtim.tv_sec : 0;
}

Json configurationOf(const Start& start) {
  const std::time_t modified = configurationTime();
  return {{"file", QOV_Utility::getProcessCfgFileName()},
          {"modified", modified != 0 ? Json(textOf(modified)) : Json()},
          {"changedSinceStart", modified != start.configurationTime}};
}

/// By QOVDropReason.
constexpr std::array<const char*, QOVModuleStats::kDropReasons> kReasons{
    "noReceiver", "noRoom", "stopped", "nobodyWaits", "invalid", "noMemory", "otherProcess"};

Json droppedOf(const QOVModuleStats& stats) {
  Json dropped = Json::object();
  for (std::size_t i = 0; i < kReasons.size(); ++i) {
    dropped[kReasons[i]] = stats.dropped_[i];
  }
  return dropped;
}

Json moduleOf(const QOVModuleStats& stats) {
  return {{"id", stats.moduleId_},
          {"name", stats.name_},
          {"state", stateOf(stats)},
          {"queue",
           {{"blocks", stats.waiting_},
            {"highestBlocks", stats.highestWaiting_},
            {"bytes", stats.waitingBytes_},
            {"highestBytes", stats.highestWaitingBytes_},
            {"roomBytes", QOVModuleStats::kRoomBytes}}},
          {"workers", stats.workers_},
          {"busy", stats.busy_},
          {"delivered", stats.in_},
          {"passedOn", stats.out_},
          {"handled",
           {{"count", stats.handled_},
            {"seconds", secondsOf(stats.handlingSum_)},
            {"longest", secondsOf(stats.longestHandling_)}}},
          {"refused", stats.refused_},
          {"timedOut", stats.timedOut_},
          {"dropped", droppedOf(stats)},
          {"pending",
           {{"count", stats.pending_},
            {"oldest", secondsOf(stats.oldestPending_)},
            {"askedLater", stats.askedLater_}}}};
}

Json linksNow() {
  Json links = Json::array();
  for (const QOVLinkStats& stats : getLinkStats()) {
    links.push_back({{"endpoint", stats.endpoint_},
                     {"connected", stats.connected_},
                     {"since", secondsOf(stats.since_)},
                     {"connections", stats.connections_},
                     {"lastError", stats.lastError_}});
  }
  return links;
}

Json clientsOf(const ClientCounts& counts) {
  return {{"accepted", counts.accepted},
          {"refused", counts.refused},
          {"tooMany", counts.tooMany},
          {"malformed", counts.malformed},
          {"tooSlow", counts.tooSlow}};
}

}  // namespace

Start startNow() {
  return {std::chrono::steady_clock::now(), std::time(nullptr), configurationTime()};
}

Json statusDocument(const Start& start, const ClientCounts& clients) {
  Json modules = Json::array();
  for (const QOVModuleStats& stats : getModuleStats()) {
    modules.push_back(moduleOf(stats));
  }
  return {{"version", QOV_Version()},
          {"process", QOV_Utility::getProcessName()},
          {"number", QOV_Utility::getProcPID()},
          {"pid", ::getpid()},
          {"started", textOf(start.time)},
          {"uptime", secondsOf(std::chrono::steady_clock::now() - start.instant)},
          {"configuration", configurationOf(start)},
          {"log", {{"file", QOV_Utility::getProcessLogFileName()}, {"level", logLevel()}}},
          {"modules", std::move(modules)},
          {"links", linksNow()},
          {"clients", clientsOf(clients)}};
}

Json moduleList() {
  Json modules = Json::array();
  for (const QOVModuleStats& stats : getModuleStats()) {
    modules.push_back({{"id", stats.moduleId_}, {"name", stats.name_}, {"state", stateOf(stats)}});
  }
  return {{"modules", std::move(modules)}};
}

const char* stateOf(const QOVModuleStats& stats) {
  if (stats.waitingBytes_ >= QOVModuleStats::kRoomBytes) {
    return "full";
  }
  if (stats.workers_ > 0 && stats.busy_ == stats.workers_) {
    return "busy";
  }
  return stats.busy_ > 0 || stats.waiting_ > 0 ? "working" : "idle";
}

}  // namespace qov::status
