#ifndef QOV_ENDURE_TRAFFIC_COUNTS_H
#define QOV_ENDURE_TRAFFIC_COUNTS_H

#include <qovpub/qov_stats.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qov::endure {

inline constexpr std::size_t kTrafficModules = 3;
/// The id of the first of them; the others follow.
inline constexpr std::uint8_t kFirstTrafficModule = 40;
/// Of the MQTT module, where there is one.
inline constexpr std::uint8_t kMqttModule = 251;

/// Where `module` stands among them.
inline std::size_t placeOf(std::uint8_t module) {
  return std::size_t{module} - kFirstTrafficModule;
}

using Count = std::atomic<std::uint64_t>;
using CountOfEach = std::array<Count, kTrafficModules>;

/// What the tasks of one module have sent and got, as they know it themselves.
struct TrafficCounts {
  // Requests, and what came of them.
  Count asked_{0};
  Count answered_{0};
  Count refused_{0};  ///< by the result of the receiver's handler
  Count timedOut_{0};
  Count noReceiver_{0};
  Count noRoom_{0};        ///< told to who waited: in this module or in the asked one
  Count noRoomLater_{0};   ///< told to a continuation: in the asked module
  Count askNotTaken_{0};   ///< told by askLater(): no room in this module
  Count laterPending_{0};  ///< continuations that have not run yet

  // Notices that this module has taken.
  Count told_{0};          ///< for a module that is there
  Count toldNobody_{0};    ///< for one that is not
  Count ofNoType_{0};      ///< of no valid type
  Count events_{0};        ///< for the MQTT module
  Count eventSerials_{0};  ///< the sum of their serials
  /// Notices that found no room in this module.
  Count tellNotTaken_{0};

  // What its handlers have got, by sender, and continuations that have run.
  CountOfEach requestsOf_{};
  CountOfEach noticesOf_{};
  /// Requests that they have answered, by sender.
  CountOfEach answersTo_{};
  Count continuations_{0};
};

using CountsOfAll = std::array<TrafficCounts, kTrafficModules>;

/// The sum of that count of all modules.
std::uint64_t sumOf(Count TrafficCounts::*part, const CountsOfAll& counts);

/// Notices of the module at `place` that it has taken and that no handler of `counts` has got.
std::uint64_t lostNotices(const CountsOfAll& counts, std::size_t place);

/// What is still under way, or does not add up between what the modules' tasks and what the library
/// have counted in `stats`, of whichever modules, a line for each; none when traffic has ended and
/// all adds up.
///
/// Every message is accounted for: a request is answered, or whoever asked is told why not; a
/// notice is handled, or counted as dropped; an answer that came too late is counted as such.
std::vector<std::string> differences(const CountsOfAll& counts, std::vector<QOVModuleStats> stats);

/// Waits, a minute at most, until all adds up: what does not then.
std::vector<std::string> settle(const CountsOfAll& counts);

}  // namespace qov::endure

#endif
