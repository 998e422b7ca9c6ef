#ifndef QOV_TOOLS_QOVCTL_FLEET_PROPERTIES_H
#define QOV_TOOLS_QOVCTL_FLEET_PROPERTIES_H

#include <cstdint>
#include <string>

#include "tools/qovctl/fleet_broker.h"

namespace qov::ctl {

/// The properties of an MQTT message that is to be sent; `id` is an MQTT_PROP_...
///
/// Thread: a value for one thread.
/// Owns:   the list.
/// Errors: std::bad_alloc.
class PropertyList {
 public:
  PropertyList() = default;
  ~PropertyList();
  PropertyList(const PropertyList&) = delete;
  PropertyList& operator=(const PropertyList&) = delete;

  void addNumber(int id, std::uint32_t value);
  void addText(int id, const std::string& value);
  void addBytes(int id, const std::string& value);
  void addUser(const char* name, const std::string& value);
  const mqtt5__property* get() const { return list_; }

 private:
  mqtt5__property* list_ = nullptr;
};

/// Sets what of a delivery stands in its properties.
void readProperties(const mqtt5__property* list, Delivery& delivery);

}  // namespace qov::ctl

#endif
