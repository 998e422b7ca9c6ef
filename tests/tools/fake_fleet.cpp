#include "tests/tools/fake_fleet.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdlib>
#include <stdexcept>

#include "tests/support/process_end.h"

namespace qov::test {
namespace {

std::string textOf(const mosquitto_property* list, int id) {
  char* text = nullptr;
  mosquitto_property_read_string(list, id, &text, false);
  const std::string copy = text != nullptr ? text : "";
  std::free(text);
  return copy;
}

std::string correlationOf(const mosquitto_property* list) {
  void* bytes = nullptr;
  std::uint16_t size = 0;
  mosquitto_property_read_binary(list, MQTT_PROP_CORRELATION_DATA, &bytes, &size, false);
  const std::string copy = bytes != nullptr ? std::string(static_cast<char*>(bytes), size) : "";
  std::free(bytes);
  return copy;
}

/// The value of the first user property.
std::string timeoutOf(const mosquitto_property* list) {
  char* name = nullptr;
  char* value = nullptr;
  mosquitto_property_read_string_pair(list, MQTT_PROP_USER_PROPERTY, &name, &value, false);
  const std::string copy = name != nullptr && name == std::string("timeout") ? value : "";
  std::free(name);
  std::free(value);
  return copy;
}

}  // namespace

FakeFleet::FakeFleet(int port)
    : client_((mosquitto_lib_init(), mosquitto_new("fake-fleet", true, this)), &mosquitto_destroy) {
  mosquitto* const client = client_.get();
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_connect_v5_callback_set(
      client, [](mosquitto*, void* self, int reason, int, const mosquitto_property*) {
        const std::lock_guard<std::mutex> guard(static_cast<FakeFleet*>(self)->lock_);
        static_cast<FakeFleet*>(self)->connected_ = reason == 0;
      });
  mosquitto_publish_v5_callback_set(
      client, [](mosquitto*, void* self, int id, int, const mosquitto_property*) {
        const std::lock_guard<std::mutex> guard(static_cast<FakeFleet*>(self)->lock_);
        static_cast<FakeFleet*>(self)->done_.insert(id);
      });
  mosquitto_subscribe_v5_callback_set(
      client, [](mosquitto*, void* self, int id, int, const int*, const mosquitto_property*) {
        const std::lock_guard<std::mutex> guard(static_cast<FakeFleet*>(self)->lock_);
        static_cast<FakeFleet*>(self)->done_.insert(id);
      });
  mosquitto_message_v5_callback_set(client,
                                    [](mosquitto*, void* self, const mosquitto_message* message,
                                       const mosquitto_property* properties) {
                                      static_cast<FakeFleet*>(self)->take(*message, properties);
                                    });
  if (mosquitto_connect_bind_v5(client, "127.0.0.1", port, 60, nullptr, nullptr) != 0 ||
      mosquitto_loop_start(client) != 0 || !waitUntil([this] {
        const std::lock_guard<std::mutex> guard(lock_);
        return connected_;
      })) {
    throw std::runtime_error("the agents do not reach their broker");
  }
}

FakeFleet::~FakeFleet() {
  mosquitto_disconnect(client_.get());
  mosquitto_loop_stop(client_.get(), false);
}

bool FakeFleet::waitFor(int id) const {
  return waitUntil([&] {
    const std::lock_guard<std::mutex> guard(lock_);
    return done_.count(id) > 0;
  });
}

void FakeFleet::publish(const std::string& topic, const std::string& payload, bool retain,
                        const std::string& contentType, const Properties& user) {
  mosquitto_property* list = nullptr;
  if (!contentType.empty()) {
    mosquitto_property_add_string(&list, MQTT_PROP_CONTENT_TYPE, contentType.c_str());
  }
  for (const auto& [name, value] : user) {
    mosquitto_property_add_string_pair(&list, MQTT_PROP_USER_PROPERTY, name.c_str(), value.c_str());
  }
  int id = 0;
  const int result =
      mosquitto_publish_v5(client_.get(), &id, topic.c_str(), static_cast<int>(payload.size()),
                           payload.data(), 1, retain, list);
  mosquitto_property_free_all(&list);
  if (result != 0 || !waitFor(id)) {
    throw std::runtime_error("the agents cannot publish on " + topic);
  }
  const std::lock_guard<std::mutex> guard(lock_);
  done_.erase(id);
}

void FakeFleet::serve(Handler handler, const std::string& agents) {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    handler_ = std::move(handler);
  }
  int id = 0;
  const std::string filter = "qov/" + agents + "/request/+";
  if (mosquitto_subscribe_v5(client_.get(), &id, filter.c_str(), 1, 0, nullptr) != 0 ||
      !waitFor(id)) {
    throw std::runtime_error("the agents get no requests");
  }
}

std::vector<FakeFleet::Request> FakeFleet::requests() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return requests_;
}

void FakeFleet::take(const mosquitto_message& message, const mosquitto_property* properties) {
  const Request request{message.topic,
                        std::string(static_cast<const char*>(message.payload),
                                    static_cast<std::size_t>(message.payloadlen)),
                        textOf(properties, MQTT_PROP_CONTENT_TYPE), timeoutOf(properties)};
  Handler handler;
  {
    const std::lock_guard<std::mutex> guard(lock_);
    requests_.push_back(request);
    handler = handler_;
  }
  const std::string responseTopic = textOf(properties, MQTT_PROP_RESPONSE_TOPIC);
  const std::string correlation = correlationOf(properties);
  for (const Answer& answer : handler(request)) {
    const std::string& topic = answer.topic.empty() ? responseTopic : answer.topic;
    const std::string& data = answer.correlation.empty() ? correlation : answer.correlation;
    mosquitto_property* list = nullptr;
    mosquitto_property_add_string(&list, MQTT_PROP_CONTENT_TYPE, answer.contentType.c_str());
    mosquitto_property_add_binary(&list, MQTT_PROP_CORRELATION_DATA, data.data(),
                                  static_cast<std::uint16_t>(data.size()));
    mosquitto_publish_v5(client_.get(), nullptr, topic.c_str(),
                         static_cast<int>(answer.payload.size()), answer.payload.data(), 1, false,
                         list);
    mosquitto_property_free_all(&list);
  }
}

}  // namespace qov::test
