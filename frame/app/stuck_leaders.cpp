#include "frame/app/stuck_leaders.h"

#include <utility>

namespace qov {

std::vector<StuckLeaders::Leader> StuckLeaders::look(Clock::time_point now,
                                                     const std::vector<LeaderLook>& leaders) {
  std::map<unsigned int, Seen> seen;
  std::vector<Leader> stuck;
  for (const LeaderLook& leader : leaders) {
    if (!leader.progress.hasWork) {
      continue;
    }
    const auto before = seen_.find(leader.moduleId);
    const bool isAtTheSame = before != seen_.end() && before->second.steps == leader.progress.steps;
    const Clock::time_point since = isAtTheSame ? before->second.since : now;
    if (now - since >= limit_) {
      stuck.push_back({leader.moduleId, leader.name, now - since});
    }
    seen.emplace(leader.moduleId, Seen{leader.progress.steps, since});
  }
  seen_ = std::move(seen);
  return stuck;
}

}  // namespace qov
