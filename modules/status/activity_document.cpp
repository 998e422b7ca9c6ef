#include "modules/status/activity_document.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "modules/status/activity_snapshot.h"
#include "modules/status/json_parts.h"
#include "modules/status/status_document.h"

namespace qov::status {
namespace {

/// As ps -L has it; empty for one that has ended.
std::string nameOfThread(int thread) {
  std::string name;
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/comm");
  std::getline(file, name);
  return name;
}

/// Null for no thread.
Json::Value threadOf(int thread) {
  return thread != 0 ? object({{"id", thread}, {"name", nameOfThread(thread)}}) : Json::Value();
}

Json::Value placeOf(unsigned int process, unsigned int module) {
  return object({{"process", process}, {"module", module}});
}

Json::Value requestOf(const QOVWaitingRequest& request, const ActivitySnapshot& snapshot) {
  const QOVRunningHandler* const handler = handlerOf(request, snapshot);
  const bool isLimited = request.timeout_ > std::chrono::nanoseconds::zero();
  return object({{"module", request.moduleId_},
                 {"thread", threadOf(request.thread_)},
                 {"receiver", placeOf(request.receiverProcess_, request.receiver_)},
                 {"operation", Json::UInt64{request.opc_}},
                 {"serial", request.sn_},
                 {"waiting", secondsOf(request.waiting_)},
                 {"timeout", isLimited ? Json::Value(secondsOf(request.timeout_)) : Json::Value()},
                 {"handler", handler != nullptr ? threadOf(handler->thread_) : Json::Value()}});
}

Json::Value waitOfHandler(const QOVRunningHandler& handler, const ActivitySnapshot& snapshot) {
  const QOVWaitingRequest* const wait = waitOf(handler, snapshot);
  if (wait == nullptr) {
    return {};
  }
  return object({{"receiver", placeOf(wait->receiverProcess_, wait->receiver_)},
                 {"operation", Json::UInt64{wait->opc_}},
                 {"waiting", secondsOf(wait->waiting_)}});
}

Json::Value handlerOfDocument(const QOVRunningHandler& handler, const ActivitySnapshot& snapshot) {
  return object({{"module", handler.moduleId_},
                 {"thread", threadOf(handler.thread_)},
                 {"operation", Json::UInt64{handler.opc_}},
                 {"serial", handler.sn_},
                 {"sender", placeOf(handler.senderProcess_, handler.sender_)},
                 {"continuation", handler.continuation_},
                 {"running", secondsOf(handler.running_)},
                 {"waitsFor", waitOfHandler(handler, snapshot)}});
}

Json::Value timesOf(const QOVHandlerTimes& times) {
  const double mean = secondsOf(times.sum_) / static_cast<double>(times.count_);
  return object(
      {{"module", times.moduleId_},
       {"operation", times.others_ ? Json::Value() : Json::Value(Json::UInt64{times.opc_})},
       {"continuation", times.continuation_},
       {"count", Json::UInt64{times.count_}},
       {"seconds", secondsOf(times.sum_)},
       {"mean", mean},
       {"median", secondsOf(times.median_)},
       {"percentile99", secondsOf(times.percentile99_)},
       {"longest", secondsOf(times.longest_)}});
}

/// What `make` makes of the oldest of each module, as `name`, and how many more there are of whom.
template <class Item, class Make>
void putOldest(Json::Value& document, const char* name, const char* nameOfRest,
               const std::vector<Item>& all, Make make) {
  Json::Value& oldest = document[name] = Json::arrayValue;
  Json::Value& rest = document[nameOfRest] = Json::arrayValue;
  std::map<unsigned int, std::size_t> counts;
  for (const Item& item : all) {
    if (++counts[item.moduleId_] <= kMostOfModule) {
      oldest.append(make(item));
    }
  }
  for (const auto& [module, count] : counts) {
    if (count > kMostOfModule) {
      rest.append(object({{"module", module}, {"count", Json::UInt64{count - kMostOfModule}}}));
    }
  }
}

Json::Value circlesIn(const ActivitySnapshot& snapshot) {
  Json::Value circles(Json::arrayValue);
  for (const std::vector<unsigned int>& circle : circlesOf(snapshot)) {
    Json::Value modules(Json::arrayValue);
    for (const unsigned int module : circle) {
      modules.append(module);
    }
    circles.append(modules);
  }
  return circles;
}

}  // namespace

Json::Value pendingDocument(const QOVActivity& activity) {
  const ActivitySnapshot snapshot = snapshotOf(activity);
  Json::Value document = moduleList();
  putOldest(document, "requests", "moreRequests", snapshot.requests,
            [&](const QOVWaitingRequest& request) { return requestOf(request, snapshot); });
  putOldest(document, "handlers", "moreHandlers", snapshot.handlers,
            [&](const QOVRunningHandler& handler) { return handlerOfDocument(handler, snapshot); });
  document["circles"] = circlesIn(snapshot);
  return document;
}

Json::Value slowDocument(const QOVActivity& activity) {
  std::vector<QOVHandlerTimes> all = activity.times();
  std::stable_sort(all.begin(), all.end(), [](const QOVHandlerTimes& a, const QOVHandlerTimes& b) {
    return a.percentile99_ > b.percentile99_;
  });
  Json::Value handlers(Json::arrayValue);
  for (const QOVHandlerTimes& times : all) {
    handlers.append(timesOf(times));
  }
  return object({{"modules", moduleList()["modules"]}, {"handlers", handlers}});
}

}  // namespace qov::status
