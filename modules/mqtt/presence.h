#ifndef QOV_MODULES_MQTT_PRESENCE_H
#define QOV_MODULES_MQTT_PRESENCE_H

#include <string>

#include "modules/mqtt/connection.h"
#include "modules/mqtt/requests.h"

namespace qov::mqtt {

/// What an agent tells of itself: version, modules, since when, and what has become of requests, if
/// `requests` is given: it is borrowed. docs/mqtt.md explains it.
Presence presenceOfAgent(const std::string& topic, const Requests::Counts* requests = nullptr);

}  // namespace qov::mqtt

#endif
