#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <thread>

#include "bench/fleet_clients.h"

namespace {

constexpr int kKeepAlive = 60;
constexpr int kQos = 1;
constexpr int kAnswerQos = 0;  ///< as the module's answers
constexpr const char* kAskersTopic = "/response/asker";

void check(int result, const char* what) {
  if (result != MOSQ_ERR_SUCCESS) {
    std::fprintf(stderr, "fleet_bench: %s: %s\n", what, mosquitto_strerror(result));
    std::exit(EXIT_FAILURE);
  }
}

std::string rootOf(const std::string& fleet, int node) {
  return "qov/" + std::to_string(node) + "/" + fleet;
}

/// An MQTT 5 client without a session.
mosquitto* makeClient(const std::string& id, void* self) {
  mosquitto_lib_init();
  mosquitto* const client = mosquitto_new(id.c_str(), true, self);
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  return client;
}

void start(mosquitto* client, int port) {
  check(mosquitto_connect_async(client, "127.0.0.1", port, kKeepAlive), "connect");
  check(mosquitto_loop_start(client), "start");
}

void end(mosquitto* client) {
  mosquitto_disconnect(client);
  mosquitto_loop_stop(client, false);
  mosquitto_destroy(client);
  mosquitto_lib_cleanup();
}

void publishJson(mosquitto* client, const std::string& topic, const std::string& payload, int qos,
                 mosquitto_property* properties) {
  mosquitto_property_add_byte(&properties, MQTT_PROP_PAYLOAD_FORMAT_INDICATOR, 1);
  mosquitto_property_add_string(&properties, MQTT_PROP_CONTENT_TYPE, "application/json");
  check(mosquitto_publish_v5(client, nullptr, topic.c_str(), static_cast<int>(payload.size()),
                             payload.data(), qos, false, properties),
        "publish");
  mosquitto_property_free_all(&properties);
}

/// A thread that works for a client as mosquitto_loop_start()'s does, but waits with poll().
class PollingThread {
 public:
  explicit PollingThread(mosquitto* client)
      : client_(client), bell_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    mosquitto_threaded_set(client, true);
  }
  ~PollingThread() { ::close(bell_); }
  PollingThread(const PollingThread&) = delete;
  PollingThread& operator=(const PollingThread&) = delete;

  void start() {
    thread_ = std::thread([this] { run(); });
  }
  void stop() {
    stopping_ = true;
    ring();
    thread_.join();
  }
  /// There is something to write.
  void ring() {
    if (!hasRung_.exchange(true)) {
      ::eventfd_write(bell_, 1);
    }
  }

 private:
  void run() {
    constexpr int kOneSecond = 1000;
    constexpr int kPackets = 1;
    while (!stopping_ || mosquitto_want_write(client_)) {
      const short writing = mosquitto_want_write(client_) ? POLLOUT : 0;
      pollfd waits[]{{bell_, POLLIN, 0},
                     {mosquitto_socket(client_), static_cast<short>(POLLIN | writing), 0}};
      ::poll(waits, 2, kOneSecond);
      if (waits[0].revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(bell_, &count);
        hasRung_ = false;
      }
      if ((waits[1].revents & ~POLLOUT) != 0) {
        check(mosquitto_loop_read(client_, kPackets), "read");
      }
      if (mosquitto_want_write(client_)) {
        check(mosquitto_loop_write(client_, kPackets), "write");
      }
      mosquitto_loop_misc(client_);
    }
  }

  mosquitto* const client_;
  const int bell_;
  std::atomic<bool> hasRung_{false};
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

class BareClient : public FleetClient {
 public:
  BareClient(Fleet& fleet, int node, bool polls)
      : fleet_(fleet),
        root_(rootOf(fleet.name, node)),
        eventTopic_(root_ + "/event/40/4097"),
        client_(makeClient(fleet.name + std::to_string(node), this)) {
    mosquitto_connect_callback_set(client_, [](mosquitto*, void* self, int) { of(self).begin(); });
    mosquitto_publish_callback_set(
        client_, [](mosquitto*, void* self, int) { of(self).fleet_.acknowledged.add(); });
    mosquitto_message_v5_callback_set(
        client_,
        [](mosquitto*, void* self, const mosquitto_message* message,
           const mosquitto_property* properties) { of(self).answer(*message, properties); });
    if (!polls) {
      start(client_, fleet.port);
      return;
    }
    polling_.emplace(client_);
    check(mosquitto_connect_async(client_, "127.0.0.1", fleet.port, kKeepAlive), "connect");
    polling_->start();
  }
  ~BareClient() override {
    if (!polling_) {
      end(client_);
      return;
    }
    polling_->stop();
    mosquitto_destroy(client_);
    mosquitto_lib_cleanup();
  }

  void publish(const std::string& payload) override {
    publishJson(client_, eventTopic_, payload, kQos, nullptr);
    if (polling_) {
      polling_->ring();
    }
  }

 private:
  static BareClient& of(void* self) { return *static_cast<BareClient*>(self); }

  void begin() {
    check(mosquitto_subscribe(client_, nullptr, (root_ + "/request/+").c_str(), kQos), "subscribe");
    fleet_.online.add();
  }

  /// With what was asked.
  void answer(const mosquitto_message& message, const mosquitto_property* properties) {
    char* topic = nullptr;
    mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false);
    void* correlation = nullptr;
    std::uint16_t length = 0;
    mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &length,
                                   false);
    mosquitto_property* answering = nullptr;
    mosquitto_property_add_binary(&answering, MQTT_PROP_CORRELATION_DATA, correlation, length);
    publishJson(client_, topic,
                std::string(static_cast<const char*>(message.payload),
                            static_cast<std::size_t>(message.payloadlen)),
                kAnswerQos, answering);
    std::free(topic);
    std::free(correlation);
  }

  Fleet& fleet_;
  const std::string root_;
  const std::string eventTopic_;
  mosquitto* const client_;
  std::optional<PollingThread> polling_;
};

}  // namespace

void Progress::waitFor(std::uint64_t count) {
  constexpr std::chrono::minutes kLongest{2};
  wanted_ = count;
  std::unique_lock lock(lock_);
  if (!changed_.wait_for(lock, kLongest, [&] { return count_ >= count; })) {
    std::fprintf(stderr, "fleet_bench: %llu of %llu after two minutes\n",
                 static_cast<unsigned long long>(count_), static_cast<unsigned long long>(count));
    std::exit(EXIT_FAILURE);
  }
}

std::unique_ptr<FleetClient> makeBareClient(Fleet& fleet, int node, bool polls) {
  return std::make_unique<BareClient>(fleet, node, polls);
}

Asker::Asker(int port) : client_(makeClient("asker", this)) {
  mosquitto_connect_callback_set(client_, [](mosquitto* client, void*, int) {
    const std::string answers = std::string("qov/+/+") + kAskersTopic;
    check(mosquitto_subscribe(client, nullptr, answers.c_str(), kQos), "subscribe");
  });
  mosquitto_subscribe_callback_set(client_, [](mosquitto*, void* self, int, int, const int*) {
    Asker& asker = *static_cast<Asker*>(self);
    const std::lock_guard lock(asker.lock_);
    asker.ready_ = true;
    asker.changed_.notify_one();
  });
  mosquitto_message_v5_callback_set(client_, [](mosquitto*, void* self, const mosquitto_message*,
                                                const mosquitto_property* properties) {
    void* correlation = nullptr;
    std::uint16_t length = 0;
    mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &length,
                                   false);
    const std::string number(static_cast<const char*>(correlation), length);
    std::free(correlation);
    Asker& asker = *static_cast<Asker*>(self);
    const std::lock_guard lock(asker.lock_);
    asker.answered_ = std::stoull(number);
    asker.changed_.notify_one();
  });
  start(client_, port);
  std::unique_lock lock(lock_);
  changed_.wait(lock, [this] { return ready_; });
}

Asker::~Asker() {
  end(client_);
}

double Asker::ask(const Fleet& fleet, int node, const std::string& payload) {
  using Clock = std::chrono::steady_clock;
  constexpr int kTries = 30;
  const std::string root = rootOf(fleet.name, node);
  for (int i = 0; i < kTries; ++i) {
    const Clock::time_point start = Clock::now();
    if (askOnce(root, payload)) {
      return std::chrono::duration<double>(Clock::now() - start).count();
    }
  }
  std::fprintf(stderr, "fleet_bench: %s does not answer\n", root.c_str());
  std::exit(EXIT_FAILURE);
}

bool Asker::askOnce(const std::string& root, const std::string& payload) {
  constexpr std::chrono::seconds kLongest{1};
  std::unique_lock lock(lock_);
  const std::string number = std::to_string(++asked_);
  lock.unlock();
  mosquitto_property* properties = nullptr;
  mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC,
                                (root + kAskersTopic).c_str());
  mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, number.data(),
                                static_cast<std::uint16_t>(number.size()));
  publishJson(client_, root + "/request/" + std::to_string(kAnsweringModule), payload, kQos,
              properties);
  lock.lock();
  return changed_.wait_for(lock, kLongest, [this] { return answered_ == asked_; });
}
