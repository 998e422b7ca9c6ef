#ifndef QOV_MODULES_MQTT_PRESENCE_H
#define QOV_MODULES_MQTT_PRESENCE_H

#include "modules/mqtt/connection.h"

namespace qov::mqtt {

/// What an agent tells of itself: version, modules, and since when. docs/mqtt.md explains it.
Presence presenceOfAgent(const std::string& topic);

}  // namespace qov::mqtt

#endif
