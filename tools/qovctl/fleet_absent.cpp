// In place of the other fleet_*.cpp where there is no libmosquitto.
#include "tools/qovctl/failure.h"
#include "tools/qovctl/fleet_options.h"

namespace qov::ctl {
namespace {

[[noreturn]] void refuse() {
  throw Failure(kFailed,
                "this qovctl is built without libmosquitto: it speaks with no MQTT broker");
}

}  // namespace

void listFleet(const FleetOptions&) {
  refuse();
}

void watchFleet(const FleetOptions&, std::optional<double>) {
  refuse();
}

void askFleet(const FleetOptions&, std::uint8_t, const CQOV_MsgPackage&) {
  refuse();
}

}  // namespace qov::ctl
