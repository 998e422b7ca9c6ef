// The module `qovmqtt`: brings the agent's events to an MQTT broker and tells there that it lives.
#include <qovpub/qov_log.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_utility.h>

#include <exception>
#include <memory>
#include <string>

#include "modules/mqtt/connection.h"
#include "modules/mqtt/log_ids.h"
#include "modules/mqtt/presence.h"
#include "modules/mqtt/settings.h"
#include "modules/mqtt/topics.h"

namespace qov::mqtt {
namespace {

class MqttModule : public CQOV_TaskMgr {
 public:
  MqttModule() : MqttModule(readSettings()) {}

  CQOV_Task* createTask() override { return nullptr; }

  bool initEnv() override try {
    warnOfUnknownKeys();
    connection_ = std::make_unique<Connection>(
        settings_, topics_.clientId(), presenceOfAgent(topics_.status()), Connection::Handlers{});
    return true;
  } catch (const std::exception& failure) {
    QOV_GUARD(guard, moduleId());
    QOV_ERROR(guard, log_id::kNotStarted, "%s", failure.what());
    return false;
  }

 private:
  static constexpr unsigned int kNoWorkers = 0;

  explicit MqttModule(const Settings& settings)
      : CQOV_TaskMgr(settings.moduleId, kNoWorkers, "mqtt"),
        settings_(settings),
        topics_(settings.node, QOV_Utility::getProcessName()) {}

  void warnOfUnknownKeys() const {
    QOV_GUARD(guard, settings_.moduleId);
    for (const std::string& key : settings_.unknownKeys) {
      QOV_WARN(guard, log_id::kUnknownKey, "%s: [%s] %s: unknown key, ignored",
               QOV_Utility::getProcessCfgFileName().c_str(), kSection, key.c_str());
    }
  }

  const Settings settings_;
  const Topics topics_;
  std::unique_ptr<Connection> connection_;
};

}  // namespace
}  // namespace qov::mqtt

QOV_MODULE(qov::mqtt::MqttModule)
