#include "modules/status/activity_snapshot.h"

#include <qovpub/qov_utility.h>

#include <algorithm>
#include <set>
#include <tuple>

namespace qov::status {
namespace {

/// What a request is known by.
auto keyOf(const QOVWaitingRequest& request) {
  return std::make_tuple(request.moduleId_, request.thread_, request.sn_, request.opc_,
                         request.receiver_);
}

/// Who waits for whom.
class Waits {
 public:
  explicit Waits(const ActivitySnapshot& snapshot) : snapshot_(snapshot) {
    for (const QOVWaitingRequest& request : snapshot.requests) {
      if (request.thread_ != 0 && request.receiverProcess_ == snapshot.process) {
        stuck_.push_back(&request);
      }
    }
    dropThoseThatGoOn();
  }

  std::set<std::vector<unsigned int>> circles() const {
    std::set<std::vector<unsigned int>> all;
    for (const QOVWaitingRequest* const request : stuck_) {
      all.insert(circleFrom(*request));
    }
    return all;
  }

 private:
  using Requests = std::vector<const QOVWaitingRequest*>;

  void dropThoseThatGoOn() {
    for (std::size_t before = 0; before != stuck_.size();) {
      before = stuck_.size();
      const Requests now = stuck_;
      stuck_.erase(std::remove_if(stuck_.begin(), stuck_.end(),
                                  [&](const QOVWaitingRequest* request) {
                                    return next(*request, now) == nullptr;
                                  }),
                   stuck_.end());
    }
  }

  /// What is waited for by somebody who has to go on before `request` is answered, if all of
  /// `stuck` cannot; null if nobody of these has to.
  const QOVWaitingRequest* next(const QOVWaitingRequest& request, const Requests& stuck) const {
    if (const QOVRunningHandler* const handler = handlerOf(request, snapshot_)) {
      return waitOf(*handler, stuck);
    }
    const QOVWaitingRequest* first = nullptr;
    std::size_t handlers = 0;
    for (const QOVRunningHandler& handler : snapshot_.handlers) {
      if (handler.moduleId_ != request.receiver_) {
        continue;
      }
      ++handlers;
      const QOVWaitingRequest* const wait = waitOf(handler, stuck);
      if (wait == nullptr) {
        return nullptr;
      }
      first = first != nullptr ? first : wait;
    }
    return hasWorkerBeside(request.receiver_, handlers) ? nullptr : first;
  }

  static const QOVWaitingRequest* waitOf(const QOVRunningHandler& handler, const Requests& stuck) {
    const auto found = std::find_if(
        stuck.begin(), stuck.end(),
        [&](const QOVWaitingRequest* request) { return request->thread_ == handler.thread_; });
    return found != stuck.end() ? *found : nullptr;
  }

  /// Whether the module has a worker that is idle, or not known to handle something.
  bool hasWorkerBeside(unsigned int moduleId, std::size_t handlers) const {
    for (const QOVModuleStats& stats : snapshot_.modules) {
      if (stats.moduleId_ == moduleId) {
        return stats.busy_ < stats.workers_ || handlers < stats.workers_;
      }
    }
    return false;
  }

  std::vector<unsigned int> circleFrom(const QOVWaitingRequest& request) const {
    Requests way;
    const QOVWaitingRequest* wait = &request;
    while (std::find(way.begin(), way.end(), wait) == way.end()) {
      way.push_back(wait);
      wait = next(*wait, stuck_);
    }
    std::vector<unsigned int> circle;
    // What has led to the circle is no part of it.
    for (auto part = std::find(way.begin(), way.end(), wait); part != way.end(); ++part) {
      circle.push_back((*part)->moduleId_);
    }
    std::rotate(circle.begin(), std::min_element(circle.begin(), circle.end()), circle.end());
    circle.push_back(circle.front());
    return circle;
  }

  const ActivitySnapshot& snapshot_;
  Requests stuck_;
};

}  // namespace

ActivitySnapshot snapshotOf(const QOVActivity& activity) {
  ActivitySnapshot snapshot;
  snapshot.process = static_cast<std::uint8_t>(QOV_Utility::getProcPID());
  std::set<decltype(keyOf({}))> before;
  for (const QOVWaitingRequest& request : activity.requests()) {
    before.insert(keyOf(request));
  }
  snapshot.handlers = activity.handlers();
  snapshot.modules = getModuleStats();
  for (const QOVWaitingRequest& request : activity.requests()) {
    if (before.count(keyOf(request)) > 0) {
      snapshot.requests.push_back(request);
    }
  }
  return snapshot;
}

const QOVRunningHandler* handlerOf(const QOVWaitingRequest& request,
                                   const ActivitySnapshot& snapshot) {
  for (const QOVRunningHandler& handler : snapshot.handlers) {
    if (request.receiverProcess_ == snapshot.process && handler.moduleId_ == request.receiver_ &&
        handler.opc_ == request.opc_ && handler.sn_ == request.sn_ &&
        handler.senderProcess_ == snapshot.process && handler.sender_ == request.moduleId_ &&
        !handler.continuation_) {
      return &handler;
    }
  }
  return nullptr;
}

const QOVWaitingRequest* waitOf(const QOVRunningHandler& handler,
                                const ActivitySnapshot& snapshot) {
  for (const QOVWaitingRequest& request : snapshot.requests) {
    if (request.thread_ == handler.thread_) {
      return &request;
    }
  }
  return nullptr;
}

std::vector<std::vector<unsigned int>> circlesOf(const ActivitySnapshot& snapshot) {
  const auto circles = Waits(snapshot).circles();
  return {circles.begin(), circles.end()};
}

}  // namespace qov::status
