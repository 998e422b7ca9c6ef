#include "tests/tools/fuzz/played_broker.h"

#include <mqtt_protocol.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <utility>

#include "tests/support/fuzz.h"

/// A client, as the library's functions below know it.
struct mosquitto {
  void* user = nullptr;
  void (*onConnect)(mosquitto*, void*, int, int, const mosquitto_property*) = nullptr;
  void (*onSubscribe)(mosquitto*, void*, int, int, const int*, const mosquitto_property*) = nullptr;
  void (*onPublish)(mosquitto*, void*, int, int, const mosquitto_property*) = nullptr;
  void (*onMessage)(mosquitto*, void*, const mosquitto_message*,
                    const mosquitto_property*) = nullptr;
};

namespace qov::test {
namespace {

PlayedBroker* playing = nullptr;
std::int64_t clockMilliseconds = 1000;

bool isText(const std::string& text) {
  return mosquitto_validate_utf8(text.data(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS;
}

/// Takes what stands in front of the next line "--" off `script`.
std::string takePart(std::string& script) {
  std::string part;
  while (!script.empty()) {
    const std::string line = takeLine(script);
    if (line == "--") {
      break;
    }
    part += line + "\n";
  }
  return part;
}

}  // namespace

PlayedBroker::PlayedBroker(std::string script) : script_(std::move(script)) {
  playing = this;
}

PlayedBroker::~PlayedBroker() {
  playing = nullptr;
}

std::vector<BrokerMessage> PlayedBroker::firstDelivered() const {
  return {delivered_.begin(),
          delivered_.begin() +
              static_cast<std::ptrdiff_t>(hasUnsubscribed_ ? first_ : delivered_.size())};
}

void PlayedBroker::unsubscribe() {
  first_ = delivered_.size();
  hasUnsubscribed_ = true;
}

int PlayedBroker::publish(const std::string& topic, const mosquitto_property* properties) {
  void* correlation = nullptr;
  std::uint16_t size = 0;
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &size,
                                 false);
  requests_.push_back({topic, {static_cast<char*>(correlation), size}, delivered_.size()});
  std::free(correlation);
  return static_cast<int>(requests_.size());
}

int PlayedBroker::loop(mosquitto& client, int timeout) {
  if (std::exchange(isConnecting_, false)) {
    client.onConnect(&client, client.user, 0, 0, nullptr);
    return MOSQ_ERR_SUCCESS;
  }
  if (std::exchange(isSubscribing_, false)) {
    const int granted = 0;
    client.onSubscribe(&client, client.user, 1, 1, &granted, nullptr);
    return MOSQ_ERR_SUCCESS;
  }
  if (script_.empty()) {
    clockMilliseconds += timeout;
    return MOSQ_ERR_SUCCESS;
  }
  std::string part = takePart(script_);
  const std::string flags = takeLine(part);
  const auto has = [&](char flag) { return flags.find(flag) != std::string::npos; };
  if (has('d')) {
    hasLost_ = true;
    return MOSQ_ERR_CONN_LOST;
  }
  if (has('q')) {
    clockMilliseconds += 1000;
  }
  BrokerMessage message;
  message.topic = takeLine(part);
  message.contentType = takeLine(part);
  message.correlation = takeLine(part);
  message.number = takeLine(part);
  message.outbox = takeLine(part);
  message.payload = part.substr(0, part.size() - (part.empty() ? 0 : 1));
  message.retained = has('r');
  if (has('n')) {
    const int id = std::atoi(message.topic.c_str());
    const auto index = static_cast<std::size_t>(id) - 1;
    if (index < requests_.size() && !requests_[index].refused) {
      requests_[index].refused = delivered_.size();
      client.onPublish(&client, client.user, id, MQTT_RC_NO_MATCHING_SUBSCRIBERS, nullptr);
    }
  } else if (!message.topic.empty() && isText(message.topic)) {
    deliver(client, message);
  }
  return MOSQ_ERR_SUCCESS;
}

void PlayedBroker::deliver(mosquitto& client, const BrokerMessage& message) {
  delivered_.push_back(message);
  BrokerMessage& sent = delivered_.back();
  mosquitto_property* properties = nullptr;
  if (!isText(sent.contentType)) {
    sent.contentType.clear();
  }
  mosquitto_property_add_string(&properties, MQTT_PROP_CONTENT_TYPE, sent.contentType.c_str());
  mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, sent.correlation.data(),
                                static_cast<std::uint16_t>(sent.correlation.size()));
  for (const auto& [name, value] : {std::pair("number", &sent.number), {"outbox", &sent.outbox}}) {
    if (!isText(*value)) {
      value->clear();
    }
    mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, name, value->c_str());
  }
  mosquitto_message given{};
  given.topic = sent.topic.data();
  given.payload = sent.payload.data();
  given.payloadlen = static_cast<int>(sent.payload.size());
  given.retain = sent.retained;
  client.onMessage(&client, client.user, &given, properties);
  mosquitto_property_free_all(&properties);
}

}  // namespace qov::test

// In place of the library's.

using qov::test::playing;

extern "C" {

int mosquitto_lib_init() {
  return MOSQ_ERR_SUCCESS;
}

int mosquitto_lib_cleanup() {
  return MOSQ_ERR_SUCCESS;
}

mosquitto* mosquitto_new(const char*, bool, void* user) {
  auto* const made = new mosquitto;
  made->user = user;
  return made;
}

void mosquitto_destroy(mosquitto* client) {
  delete client;
}

int mosquitto_int_option(mosquitto*, mosq_opt_t, int) {
  return MOSQ_ERR_SUCCESS;
}

void mosquitto_connect_v5_callback_set(mosquitto* client, void (*call)(mosquitto*, void*, int, int,
                                                                       const mosquitto_property*)) {
  client->onConnect = call;
}

void mosquitto_disconnect_v5_callback_set(mosquitto*, void (*)(mosquitto*, void*, int,
                                                               const mosquitto_property*)) {}

void mosquitto_subscribe_v5_callback_set(mosquitto* client,
                                         void (*call)(mosquitto*, void*, int, int, const int*,
                                                      const mosquitto_property*)) {
  client->onSubscribe = call;
}

void mosquitto_publish_v5_callback_set(mosquitto* client, void (*call)(mosquitto*, void*, int, int,
                                                                       const mosquitto_property*)) {
  client->onPublish = call;
}

void mosquitto_message_v5_callback_set(mosquitto* client,
                                       void (*call)(mosquitto*, void*, const mosquitto_message*,
                                                    const mosquitto_property*)) {
  client->onMessage = call;
}

void mosquitto_log_callback_set(mosquitto*, void (*)(mosquitto*, void*, int, const char*)) {}

int mosquitto_connect_bind_v5(mosquitto*, const char*, int, int, const char*,
                              const mosquitto_property*) {
  return MOSQ_ERR_SUCCESS;
}

int mosquitto_disconnect(mosquitto*) {
  return MOSQ_ERR_SUCCESS;
}

int mosquitto_subscribe_v5(mosquitto*, int*, const char*, int, int, const mosquitto_property*) {
  playing->subscribe();
  return MOSQ_ERR_SUCCESS;
}

int mosquitto_unsubscribe(mosquitto*, int*, const char*) {
  playing->unsubscribe();
  return MOSQ_ERR_SUCCESS;
}

int mosquitto_publish_v5(mosquitto*, int* id, const char* topic, int, const void*, int, bool,
                         const mosquitto_property* properties) {
  *id = playing->publish(topic, properties);
  return MOSQ_ERR_SUCCESS;
}

int mosquitto_loop(mosquitto* client, int timeout, int) {
  return playing->loop(*client, timeout);
}

// In place of the system's.

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (playing == nullptr || clock != CLOCK_MONOTONIC) {
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
  }
  using qov::test::clockMilliseconds;
  now->tv_sec = clockMilliseconds / 1000;
  now->tv_nsec = clockMilliseconds % 1000 * 1000000;
  return 0;
}

/// libFuzzer's timer goes on while the client connects.
int setitimer(__itimer_which_t which, const itimerval* value, itimerval* before) noexcept {
  return playing == nullptr ? static_cast<int>(::syscall(SYS_setitimer, which, value, before)) : 0;
}

}  // extern "C"
