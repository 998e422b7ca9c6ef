// The module `qovmqtt`: brings the agent's events to an MQTT broker, and requests from there to its
// modules, and tells there that the agent lives.
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_log.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_utility.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "modules/common/message_payload.h"
#include "modules/mqtt/connection.h"
#include "modules/mqtt/event_sender.h"
#include "modules/mqtt/log_ids.h"
#include "modules/mqtt/presence.h"
#include "modules/mqtt/requests.h"
#include "modules/mqtt/settings.h"
#include "modules/mqtt/topics.h"

namespace qov::mqtt {
namespace {

/// Takes the messages that modules send here for events, and the copies of what they send to
/// others. Whoever sends a request is told whether the event is in the outbox.
class EventTask : public CQOV_CommonTask {
 public:
  /// `answering` sends the answers: it outlives the pool's workers.
  EventTask(CQOV_TaskMgr* module, CQOV_Task& answering, EventForm form, EventSender& sender)
      : CQOV_CommonTask(module), answering_(answering), form_(form), sender_(sender) {}

  int handleMessage(CQOV_MsgPackage& message) override {
    const QOVMsgHead head = message.head();
    Event event;
    event.module = head.smid_;
    event.opc = head.opc_;
    event.isText = form_ == EventForm::kJson;
    EventSender::Receipt receipt;
    if (head.type_ == QOVMsgHead::kRequest) {
      receipt = [&answering = answering_, head](bool stored) {
        QOV_Answer(answering, head, nullptr, stored ? 0 : kNotStored);
      };
    }
    // Of a large message JSON would take many times its bytes.
    if (const std::size_t size = common::sizeOfMessage(message);
        size > EventSender::kMostEventBytes) {
      sender_.refuse(event, size, receipt);
      return 0;
    }
    event.payload = event.isText ? common::jsonOfMessage(message) : common::bytesOfMessage(message);
    sender_.accept(std::move(event), std::move(receipt));
    return 0;
  }

 private:
  static constexpr int kNotStored = 1;

  CQOV_Task& answering_;
  const EventForm form_;
  EventSender& sender_;
};

class MqttModule : public CQOV_TaskMgr {
 public:
  MqttModule() : MqttModule(readSettings()) {}
  /// The sender and the connection use each other: the sender's thread ends first, and the sender
  /// goes last.
  ~MqttModule() override {
    stop();
    sender_.stop();
    connection_.reset();
    if (requests_ && requests_->counts().received > 0) {
      requests_->logCounts();
    }
  }

  CQOV_Task* createTask() override {
    return new EventTask(this, answering_, settings_.eventForm, sender_);
  }

  bool initEnv() override try {
    warnOfUnknownKeys();
    Connection::Handlers handlers;
    handlers.settled = [&sender = sender_](std::uint64_t token, int reason) {
      sender.settled(token, reason);
    };
    // The first requests may come before its constructor has ended.
    std::promise<Connection*> made;
    requests_.emplace(answering_, settings_.requests, topics_.responses(),
                      [connection = made.get_future().share()](Outgoing&& message) {
                        return connection.get()->publish(std::move(message));
                      });
    handlers.received = [&requests = *requests_](Incoming&& message) {
      requests.take(std::move(message));
    };
    handlers.tooLarge = [&requests = *requests_](Outgoing&& answer) {
      requests.tellTooLarge(std::move(answer));
    };
    connection_ = std::make_unique<Connection>(
        settings_, topics_.clientId(), presenceOfAgent(topics_.status(), &requests_->counts()),
        std::move(handlers), std::vector<std::string>{topics_.requests()});
    made.set_value(connection_.get());
    sender_.start([&connection = *connection_](Outgoing&& message) {
      return connection.publish(std::move(message));
    });
    return true;
  } catch (const std::exception& failure) {
    QOV_GUARD(guard, moduleId());
    QOV_ERROR(guard, log_id::kNotStarted, "%s", failure.what());
    return false;
  }

 private:
  /// One, so that events stay in their order.
  static constexpr unsigned int kWorkers = 1;

  explicit MqttModule(const Settings& settings)
      : CQOV_TaskMgr(settings.moduleId, kWorkers, "mqtt"),
        settings_(settings),
        topics_(settings.node, QOV_Utility::getProcessName()),
        sender_(settings_, topics_),
        answering_(this) {
    settings_.copied.each([this](std::uint8_t module, std::optional<std::uint64_t> opc) {
      takeCopiesOf(module, opc);
    });
  }

  void warnOfUnknownKeys() const {
    QOV_GUARD(guard, settings_.moduleId);
    for (const std::string& key : settings_.unknownKeys) {
      QOV_WARN(guard, log_id::kUnknownKey, "%s: [%s] %s: unknown key, ignored",
               QOV_Utility::getProcessCfgFileName().c_str(), kSection, key.c_str());
    }
  }

  const Settings settings_;
  const Topics topics_;
  EventSender sender_;
  CQOV_Task answering_;
  std::optional<Requests> requests_;
  std::unique_ptr<Connection> connection_;
};

}  // namespace
}  // namespace qov::mqtt

QOV_MODULE(qov::mqtt::MqttModule)
