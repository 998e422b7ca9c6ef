#include "modules/status/status_document.h"

#include <qovpub/qov_link_stats.h>
#include <qovpub/qov_trace.h>
#include <qovpub/qov_utility.h>
#include <qovpub/qov_version.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>
#include <utility>

#include "modules/status/json_parts.h"
#include "modules/status/level.h"

namespace qov::status {
namespace {

std::string textOf(std::time_t time) {
  std::tm parts{};
  std::array<char, 32> text{};
  ::gmtime_r(&time, &parts);
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

/// When the process configuration file was changed; 0 without one.
timespec configurationTime() {
  struct stat file {};
  const bool there = ::stat(QOV_Utility::getProcessCfgFileName().c_str(), &file) == 0;
  return there ? file.st_mtim : timespec{};
}

Json::Value wholeSecondsOf(const timespec& time) {
  return time.tv_sec != 0 ? Json::Value(textOf(time.tv_sec)) : Json::Value();
}

Json::Value configurationOf(const Start& start) {
  const timespec now = configurationTime();
  const timespec& then = start.configurationTime;
  return object({{"file", QOV_Utility::getProcessCfgFileName()},
                 {"inForce", wholeSecondsOf(then)},
                 {"modified", wholeSecondsOf(now)},
                 {"changedSinceStart", now.tv_sec != then.tv_sec || now.tv_nsec != then.tv_nsec}});
}

Json::Value droppedOf(const QOVModuleStats& stats) {
  Json::Value dropped(Json::objectValue);
  for (std::size_t i = 0; i < kDropReasons.size(); ++i) {
    dropped[kDropReasons[i]] = stats.dropped_[i];
  }
  return dropped;
}

Json::Value moduleOf(const QOVModuleStats& stats) {
  const Json::Value room(Json::UInt64{QOVModuleStats::kRoomBytes});
  return object({{"id", stats.moduleId_},
                 {"name", stats.name_},
                 {"state", stateOf(stats)},
                 {"queue", object({{"blocks", stats.waiting_},
                                   {"highestBlocks", stats.highestWaiting_},
                                   {"bytes", stats.waitingBytes_},
                                   {"highestBytes", stats.highestWaitingBytes_},
                                   {"roomBytes", room}})},
                 {"workers", stats.workers_},
                 {"busy", stats.busy_},
                 {"delivered", stats.in_},
                 {"passedOn", stats.out_},
                 {"handled", object({{"count", stats.handled_},
                                     {"seconds", secondsOf(stats.handlingSum_)},
                                     {"longest", secondsOf(stats.longestHandling_)}})},
                 {"refused", stats.refused_},
                 {"timedOut", stats.timedOut_},
                 {"dropped", droppedOf(stats)},
                 {"pending", object({{"count", stats.pending_},
                                     {"oldest", secondsOf(stats.oldestPending_)},
                                     {"askedLater", stats.askedLater_}})}});
}

Json::Value linksNow() {
  Json::Value links(Json::arrayValue);
  for (const QOVLinkStats& stats : getLinkStats()) {
    links.append(object({{"endpoint", stats.endpoint_},
                         {"connected", stats.connected_},
                         {"since", secondsOf(stats.since_)},
                         {"connections", stats.connections_},
                         {"lastError", stats.lastError_}}));
  }
  return links;
}

Json::Value clientsOf(const ClientCounts& counts) {
  return object({{"accepted", counts.accepted.load()},
                 {"refused", counts.refused.load()},
                 {"tooMany", counts.tooMany.load()},
                 {"malformed", counts.malformed.load()},
                 {"tooSlow", counts.tooSlow.load()},
                 {"cutOff", counts.cutOff.load()}});
}

}  // namespace

Start startNow() {
  return {std::chrono::steady_clock::now(), std::time(nullptr), configurationTime()};
}

Json::Value statusDocument(const Start& start, const ClientCounts& clients) {
  Json::Value modules(Json::arrayValue);
  for (const QOVModuleStats& stats : getModuleStats()) {
    modules.append(moduleOf(stats));
  }
  return object(
      {{"version", QOV_Version()},
       {"process", QOV_Utility::getProcessName()},
       {"number", QOV_Utility::getProcPID()},
       {"pid", ::getpid()},
       {"started", textOf(start.time)},
       {"uptime", secondsOf(std::chrono::steady_clock::now() - start.instant)},
       {"configuration", configurationOf(start)},
       {"log", object({{"file", QOV_Utility::getProcessLogFileName()}, {"level", logLevel()}})},
       {"modules", modules},
       {"links", linksNow()},
       {"trace", QOVMessageTrace::isOn()},
       {"clients", clientsOf(clients)}});
}

Json::Value moduleList() {
  Json::Value modules(Json::arrayValue);
  for (const QOVModuleStats& stats : getModuleStats()) {
    modules.append(
        object({{"id", stats.moduleId_}, {"name", stats.name_}, {"state", stateOf(stats)}}));
  }
  return object({{"modules", modules}});
}

const char* stateOf(const QOVModuleStats& stats) {
  if (stats.stopping_) {
    return "stopping";
  }
  if (stats.waitingBytes_ >= QOVModuleStats::kRoomBytes) {
    return "full";
  }
  if (stats.workers_ > 0 && stats.busy_ == stats.workers_) {
    return "busy";
  }
  return stats.busy_ > 0 || stats.waiting_ > 0 ? "working" : "idle";
}

}  // namespace qov::status
