#include "tests/modules/mqtt/requester.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace qov::test {
namespace {

constexpr std::chrono::seconds kPatience{180};
constexpr int kQos = 1;

void check(int result, const char* what) {
  if (result != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(result));
  }
}

}  // namespace

struct Requester::Callbacks {
  static void subscribed(mosquitto*, void* self, int, int, const int*, const mosquitto_property*) {
    auto& requester = *static_cast<Requester*>(self);
    const std::lock_guard lock(requester.lock_);
    requester.subscribed_ = true;
    requester.changed_.notify_one();
  }

  static void received(mosquitto*, void* self, const mosquitto_message* message,
                       const mosquitto_property* properties) {
    Told told;
    told.payload.assign(static_cast<const char*>(message->payload),
                        static_cast<std::size_t>(message->payloadlen));
    char* type = nullptr;
    if (mosquitto_property_read_string(properties, MQTT_PROP_CONTENT_TYPE, &type, false) !=
        nullptr) {
      told.contentType = type;
      std::free(type);
    }
    void* data = nullptr;
    std::uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                       false) != nullptr) {
      told.correlation.assign(static_cast<const char*>(data), length);
      std::free(data);
    }
    auto& requester = *static_cast<Requester*>(self);
    const std::lock_guard lock(requester.lock_);
    requester.told_.push_back(std::move(told));
    requester.changed_.notify_one();
  }
};

Requester::Requester(const MqttBroker& broker, const std::string& responses)
    : client_((mosquitto_lib_init(), mosquitto_new(nullptr, true, this))) {
  mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client_, MOSQ_OPT_SEND_MAXIMUM, 1000);
  mosquitto_subscribe_v5_callback_set(client_, &Callbacks::subscribed);
  mosquitto_message_v5_callback_set(client_, &Callbacks::received);
  check(mosquitto_connect_bind_v5(client_, "127.0.0.1", broker.port(), 60, nullptr, nullptr),
        "connect");
  check(mosquitto_loop_start(client_), "start");
  check(mosquitto_subscribe_v5(client_, nullptr, responses.c_str(), kQos, 0, nullptr), "subscribe");
  std::unique_lock lock(lock_);
  if (!changed_.wait_for(lock, kPatience, [this] { return subscribed_; })) {
    throw std::runtime_error("the broker does not let the requester subscribe");
  }
}

Requester::~Requester() {
  mosquitto_disconnect_v5(client_, 0, nullptr);
  mosquitto_loop_stop(client_, false);
  mosquitto_destroy(client_);
  mosquitto_lib_cleanup();
}

void Requester::send(const Question& question) {
  mosquitto_property* list = nullptr;
  const auto addText = [&](int name, const std::string& value) {
    if (!value.empty()) {
      check(mosquitto_property_add_string(&list, name, value.c_str()), "property");
    }
  };
  addText(MQTT_PROP_CONTENT_TYPE, question.contentType);
  addText(MQTT_PROP_RESPONSE_TOPIC, question.responseTopic);
  if (!question.correlation.empty()) {
    check(mosquitto_property_add_binary(&list, MQTT_PROP_CORRELATION_DATA,
                                        question.correlation.data(),
                                        static_cast<std::uint16_t>(question.correlation.size())),
          "correlation data");
  }
  for (const auto& [name, value] : question.properties) {
    check(mosquitto_property_add_string_pair(&list, MQTT_PROP_USER_PROPERTY, name.c_str(),
                                             value.c_str()),
          "user property");
  }
  const int result = mosquitto_publish_v5(client_, nullptr, question.topic.c_str(),
                                          static_cast<int>(question.payload.size()),
                                          question.payload.data(), kQos, question.retain, list);
  mosquitto_property_free_all(&list);
  check(result, "publish");
}

bool Requester::waitFor(std::size_t count) {
  std::unique_lock lock(lock_);
  return changed_.wait_for(lock, kPatience, [&] { return told_.size() >= count; });
}

std::vector<Told> Requester::takeAll() {
  const std::lock_guard lock(lock_);
  return std::exchange(told_, {});
}

Told Requester::ask(const Question& question) {
  send(question);
  if (!waitFor(1)) {
    return {};
  }
  const std::vector<Told> all = takeAll();
  return all.size() == 1 ? all.front() : Told();
}

}  // namespace qov::test
