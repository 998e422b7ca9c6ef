#ifndef QOV_FRAME_APP_STUCK_LEADERS_H
#define QOV_FRAME_APP_STUCK_LEADERS_H

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "task/running_managers.h"

namespace qov {

/// Finds leaders that have work and do not get on with it.
///
/// Thread: one.
class StuckLeaders {
 public:
  using Clock = std::chrono::steady_clock;

  /// A leader that has been at the same work for `stuckFor`, or has left work lying for so long.
  struct Leader {
    unsigned int moduleId;
    std::string name;
    Clock::duration stuckFor;
  };

  /// `limit`: from when on a leader counts as stuck.
  explicit StuckLeaders(Clock::duration limit) : limit_(limit) {}

  /// Compares `leaders` with those that it was given before.
  std::vector<Leader> look(Clock::time_point now, const std::vector<LeaderLook>& leaders);

 private:
  struct Seen {
    unsigned int steps;
    Clock::time_point since;
  };

  const Clock::duration limit_;
  /// Those that had work, by module.
  std::map<unsigned int, Seen> seen_;
};

}  // namespace qov

#endif
