#include "tools/qovctl/fleet_properties.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

namespace qov::ctl {
namespace {

void checkAdded(int result) {
  if (result == MOSQ_ERR_NOMEM) {
    throw std::bad_alloc();
  }
}

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, FreeMemory>;

std::string textProperty(const mosquitto_property* list, int id) {
  char* text = nullptr;
  mosquitto_property_read_string(list, id, &text, false);
  const Text owned(text);
  return text != nullptr ? text : "";
}

std::string bytesProperty(const mosquitto_property* list, int id) {
  void* bytes = nullptr;
  std::uint16_t size = 0;
  mosquitto_property_read_binary(list, id, &bytes, &size, false);
  const std::unique_ptr<void, FreeMemory> owned(bytes);
  return bytes != nullptr ? std::string(static_cast<const char*>(bytes), size) : "";
}

void readUserProperties(const mosquitto_property* list, Delivery& delivery) {
  char* name = nullptr;
  char* value = nullptr;
  bool again = false;
  for (const mosquitto_property* at = list;
       (at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value,
                                                 again)) != nullptr;
       again = true) {
    const Text ownedName(name);
    const Text ownedValue(value);
    const std::string_view key = name != nullptr ? name : "";
    if (key == "number") {
      delivery.number = value;
    } else if (key == "outbox") {
      delivery.outbox = value;
    }
  }
}

}  // namespace

PropertyList::~PropertyList() {
  mosquitto_property_free_all(&list_);
}

void PropertyList::addNumber(int id, std::uint32_t value) {
  checkAdded(mosquitto_property_add_int32(&list_, id, value));
}

void PropertyList::addText(int id, const std::string& value) {
  checkAdded(mosquitto_property_add_string(&list_, id, value.c_str()));
}

void PropertyList::addBytes(int id, const std::string& value) {
  checkAdded(mosquitto_property_add_binary(&list_, id, value.data(),
                                           static_cast<std::uint16_t>(value.size())));
}

void PropertyList::addUser(const char* name, const std::string& value) {
  checkAdded(
      mosquitto_property_add_string_pair(&list_, MQTT_PROP_USER_PROPERTY, name, value.c_str()));
}

void readProperties(const mosquitto_property* list, Delivery& delivery) {
  delivery.contentType = textProperty(list, MQTT_PROP_CONTENT_TYPE);
  delivery.correlation = bytesProperty(list, MQTT_PROP_CORRELATION_DATA);
  readUserProperties(list, delivery);
}

}  // namespace qov::ctl
