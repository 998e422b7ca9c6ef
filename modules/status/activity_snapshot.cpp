#include "modules/status/activity_snapshot.h"

#include <qovpub/qov_utility.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>

namespace qov::status {
namespace {

/// What a request is known by.
auto keyOf(const QOVWaitingRequest& request) {
  return std::make_tuple(request.moduleId_, request.thread_, request.sn_, request.opc_,
                         request.receiver_);
}

/// A wait whose answer may be on its way, or that may be about to be taken up, is shorter.
constexpr std::chrono::seconds kLasting{1};

/// Who waits for whom.
class Waits {
 public:
  explicit Waits(const ActivitySnapshot& snapshot) : snapshot_(snapshot) {
    for (const QOVWaitingRequest& request : snapshot.requests) {
      if (request.thread_ != 0 && request.receiverProcess_ == snapshot.process &&
          request.waiting_ >= kLasting) {
        stuck_.emplace(request.thread_, Wait{&request, handlerOf(request, snapshot)});
      }
    }
    for (const QOVRunningHandler& handler : snapshot.handlers) {
      handling_[handler.moduleId_].push_back(handler.thread_);
    }
    dropThoseThatGoOn();
  }

  std::set<std::vector<unsigned int>> circles() const {
    std::set<std::vector<unsigned int>> all;
    // From which wait each has been reached first.
    std::unordered_map<const Wait*, const Wait*> reachedFrom;
    for (const auto& [thread, start] : stuck_) {
      const Wait* wait = &start;
      while (reachedFrom.emplace(wait, &start).second) {
        wait = next(*wait);
      }
      // What has led to the circle is no part of it.
      if (reachedFrom[wait] == &start) {
        all.insert(circleOf(*wait));
      }
    }
    return all;
  }

 private:
  struct Wait {
    const QOVWaitingRequest* request;
    const QOVRunningHandler* handler;  ///< of the request; null if it has not been taken up
  };

  void dropThoseThatGoOn() {
    for (bool all = false; !all;) {
      all = true;
      for (auto wait = stuck_.begin(); wait != stuck_.end();) {
        const bool goesOn = next(wait->second) == nullptr;
        all = all && !goesOn;
        wait = goesOn ? stuck_.erase(wait) : std::next(wait);
      }
    }
  }

  /// What is waited for by somebody who has to go on before `wait` ends, if all of stuck_ cannot;
  /// null if nobody of these has to.
  const Wait* next(const Wait& wait) const {
    if (wait.handler != nullptr) {
      return waitOf(wait.handler->thread_);
    }
    const auto handling = handling_.find(wait.request->receiver_);
    if (handling == handling_.end() ||
        hasWorkerBeside(wait.request->receiver_, handling->second.size())) {
      return nullptr;
    }
    const Wait* first = nullptr;
    for (const int thread : handling->second) {
      const Wait* const other = waitOf(thread);
      if (other == nullptr) {
        return nullptr;
      }
      first = first != nullptr ? first : other;
    }
    return first;
  }

  const Wait* waitOf(int thread) const {
    const auto found = stuck_.find(thread);
    return found != stuck_.end() ? &found->second : nullptr;
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

  std::vector<unsigned int> circleOf(const Wait& start) const {
    std::vector<unsigned int> circle;
    const Wait* wait = &start;
    do {
      circle.push_back(wait->request->moduleId_);
      wait = next(*wait);
    } while (wait != &start);
    std::rotate(circle.begin(), std::min_element(circle.begin(), circle.end()), circle.end());
    circle.push_back(circle.front());
    return circle;
  }

  const ActivitySnapshot& snapshot_;
  /// By the thread that waits.
  std::map<int, Wait> stuck_;
  /// The threads that handle something, by their modules.
  std::map<unsigned int, std::vector<int>> handling_;
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
