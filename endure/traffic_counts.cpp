#include "endure/traffic_counts.h"

#include <algorithm>
#include <chrono>

#include "tests/support/process_end.h"

namespace qov::endure {
namespace {

std::uint64_t sum(const CountOfEach& counts) {
  std::uint64_t total = 0;
  for (const Count& count : counts) {
    total += count;
  }
  return total;
}

/// The sum of what `part` of each module says of the module at `place`.
std::uint64_t ofAll(const CountsOfAll& counts, CountOfEach TrafficCounts::*part,
                    std::size_t place) {
  std::uint64_t total = 0;
  for (const TrafficCounts& each : counts) {
    total += (each.*part)[place];
  }
  return total;
}

/// Compares, and adds what differs to `differences`.
struct Comparison {
  const std::string who;
  std::vector<std::string>& differences;

  void equal(const char* what, std::uint64_t counted, std::uint64_t expected) {
    if (counted != expected) {
      differences.push_back(who + ": " + what + " is " + std::to_string(counted) + ", not " +
                            std::to_string(expected));
    }
  }
};

void compareModule(Comparison module, const CountsOfAll& counts, std::size_t place,
                   const QOVModuleStats& stats) {
  const TrafficCounts& own = counts[place];
  module.equal("waiting_", stats.waiting_, 0);
  module.equal("waitingBytes_", stats.waitingBytes_, 0);
  module.equal("busy_", stats.busy_, 0);
  module.equal("pending_", stats.pending_, 0);
  module.equal("askedLater_", stats.askedLater_, 0);

  const std::uint64_t gotAnswer = own.answered_ + own.refused_;
  module.equal("what came of its requests",
               gotAnswer + own.timedOut_ + own.noReceiver_ + own.noRoom_ + own.noRoomLater_ +
                   own.askNotTaken_,
               own.asked_);
  module.equal("what got to a handler of its requests",
               ofAll(counts, &TrafficCounts::requestsOf_, place), gotAnswer + own.timedOut_);

  const std::uint64_t handled = sum(own.requestsOf_) + sum(own.noticesOf_);
  module.equal("in_", stats.in_, handled + gotAnswer);
  module.equal("handled_", stats.handled_, handled + own.continuations_);

  const std::uint64_t handledByOthers = ofAll(counts, &TrafficCounts::requestsOf_, place) +
                                        ofAll(counts, &TrafficCounts::noticesOf_, place) -
                                        own.requestsOf_[place] - own.noticesOf_[place];
  module.equal("out_", stats.out_,
               handledByOthers + sum(own.answersTo_) - own.answersTo_[place] + own.events_);
  module.equal("timedOut_", stats.timedOut_, own.timedOut_);

  module.equal("dropped: no receiver", stats.dropped(QOVDropReason::kNoReceiver),
               own.noReceiver_ + own.toldNobody_);
  module.equal("dropped: nobody waits", stats.dropped(QOVDropReason::kNobodyWaits),
               ofAll(counts, &TrafficCounts::answersTo_, place) - gotAnswer);
  module.equal("dropped: invalid", stats.dropped(QOVDropReason::kInvalid), own.ofNoType_);
  module.equal("dropped: stopped", stats.dropped(QOVDropReason::kStopped), 0);
  module.equal("dropped: no memory", stats.dropped(QOVDropReason::kNoMemory), 0);
  module.equal("dropped: other process", stats.dropped(QOVDropReason::kOtherProcess), 0);
}

/// A refusal is told to whoever sends, but for a notice that its module had taken. Who waits for an
/// answer is not told which of two modules had no room, so this adds up for all modules alone.
void compareRefusals(Comparison all, const CountsOfAll& counts,
                     const std::vector<QOVModuleStats>& stats) {
  std::uint64_t refused = 0;
  std::uint64_t told = 0;
  for (std::size_t place = 0; place < kTrafficModules; ++place) {
    const TrafficCounts& own = counts[place];
    const std::uint64_t lost = lostNotices(counts, place) + own.noRoomLater_;
    const std::uint64_t dropped = stats[place].dropped(QOVDropReason::kNoRoom);
    refused += stats[place].refused_;
    told += own.noRoom_ + own.askNotTaken_ + own.tellNotTaken_ + lost;
    // Any number of the requests that were dropped may have been counted as waiting, too.
    all.equal("dropped: no room, less than what got lost", dropped < lost ? 1 : 0, 0);
    all.equal("dropped: no room, more than what was told", dropped > lost + own.noRoom_ ? 1 : 0, 0);
  }
  all.equal("refused_", refused, told);
}

}  // namespace

std::uint64_t lostNotices(const CountsOfAll& counts, std::size_t place) {
  return counts[place].told_ - ofAll(counts, &TrafficCounts::noticesOf_, place);
}

std::uint64_t sumOf(Count TrafficCounts::*part, const CountsOfAll& counts) {
  std::uint64_t total = 0;
  for (const TrafficCounts& each : counts) {
    total += each.*part;
  }
  return total;
}

std::vector<std::string> differences(const CountsOfAll& counts, std::vector<QOVModuleStats> stats) {
  std::vector<std::string> found;
  for (const QOVModuleStats& each : stats) {
    if (each.moduleId_ == kMqttModule) {
      Comparison mqtt{"the MQTT module", found};
      mqtt.equal("in_", each.in_, sumOf(&TrafficCounts::events_, counts));
      mqtt.equal("waiting_", each.waiting_, 0);
    }
  }
  const auto isOther = [](const QOVModuleStats& module) {
    return module.moduleId_ < kFirstTrafficModule ||
           module.moduleId_ >= kFirstTrafficModule + kTrafficModules;
  };
  stats.erase(std::remove_if(stats.begin(), stats.end(), isOther), stats.end());
  if (stats.size() != kTrafficModules) {
    return {std::to_string(stats.size()) + " modules have figures"};
  }
  for (std::size_t place = 0; place < kTrafficModules; ++place) {
    compareModule({"module " + std::to_string(stats[place].moduleId_), found}, counts, place,
                  stats[place]);
  }
  compareRefusals({"all modules", found}, counts, stats);
  return found;
}

std::vector<std::string> settle(const CountsOfAll& counts) {
  std::vector<std::string> open;
  test::waitUntil(
      [&] {
        open = differences(counts, getModuleStats());
        return open.empty();
      },
      std::chrono::seconds(60));
  return open;
}

}  // namespace qov::endure
