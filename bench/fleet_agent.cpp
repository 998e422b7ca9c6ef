#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include "bench/fleet_clients.h"
#include "modules/mqtt/connection.h"
#include "modules/mqtt/event_sender.h"
#include "modules/mqtt/presence.h"
#include "modules/mqtt/requests.h"
#include "modules/mqtt/settings.h"
#include "modules/mqtt/topics.h"

namespace {

using namespace qov::mqtt;

constexpr unsigned int kModule = 40;
constexpr std::uint64_t kOperation = 4097;

Settings settingsOf(const Fleet& fleet, int node, const std::string& outbox) {
  Settings settings;
  settings.host = "127.0.0.1";
  settings.port = fleet.port;
  settings.tls = false;
  settings.node = std::to_string(node);
  settings.outbox = outbox;
  settings.requests.allowed = OperationList(std::to_string(kAnsweringModule) + ":*");
  return settings;
}

class Agent : public FleetClient {
 public:
  Agent(Fleet& fleet, int node, const std::string& outbox, CQOV_Task* sender)
      : fleet_(fleet),
        settings_(settingsOf(fleet, node, outbox)),
        topics_(settings_.node, fleet.name) {
    if (!outbox.empty()) {
      sender_.emplace(settings_, topics_);
    }
    if (sender != nullptr) {
      requests_.emplace(
          *sender, settings_.requests, topics_.responses(),
          [this](Outgoing&& message) { return connection_->publish(std::move(message)); });
    }
    connection_ = std::make_unique<Connection>(settings_, topics_.clientId(),
                                               presenceOfAgent(topics_.status()), handlers(),
                                               std::vector<std::string>{topics_.requests()});
    if (sender_) {
      sender_->start(
          [this](Outgoing&& message) { return connection_->publish(std::move(message)); });
    }
  }

  ~Agent() override {
    if (sender_) {
      sender_->stop();
    }
    connection_.reset();
  }

  void publish(const std::string& payload) override {
    if (sender_) {
      sender_->accept({kModule, kOperation, true, payload});
      return;
    }
    Outgoing message;
    message.topic = topics_.event(kModule, kOperation);
    message.payload = payload;
    message.contentType = "application/json";
    message.isText = true;
    message.number = 1;
    if (!connection_->publish(std::move(message))) {
      std::fprintf(stderr, "fleet_bench: the connection has no room\n");
      std::exit(EXIT_FAILURE);
    }
  }

 private:
  Connection::Handlers handlers() {
    Connection::Handlers handlers;
    handlers.online = [&fleet = fleet_](bool online) {
      if (online) {
        fleet.online.add();
      }
    };
    handlers.settled = [this](std::uint64_t number, int reason) {
      if (sender_) {
        sender_->settled(number, reason);
      }
      fleet_.acknowledged.add();
    };
    handlers.received = [this](Incoming&& message) {
      if (requests_) {
        requests_->take(std::move(message));
      }
    };
    return handlers;
  }

  Fleet& fleet_;
  const Settings settings_;
  const Topics topics_;
  std::optional<EventSender> sender_;
  std::optional<Requests> requests_;
  std::unique_ptr<Connection> connection_;
};

}  // namespace

std::unique_ptr<FleetClient> makeAgent(Fleet& fleet, int node, const std::string& outbox,
                                       CQOV_Task* sender) {
  return std::make_unique<Agent>(fleet, node, outbox, sender);
}
