#ifndef QOV_TESTS_TOOLS_QOVCTL_FLEET_TEST_H
#define QOV_TESTS_TOOLS_QOVCTL_FLEET_TEST_H

#include <optional>
#include <string>
#include <vector>

#include "tests/support/mqtt_broker.h"
#include "tests/tools/fake_fleet.h"
#include "tests/tools/qovctl_fixture.h"

namespace qov::test {

/// qovctl with a broker, which is there from startBroker() on, and agents at it.
class QovctlFleet : public QovctlTest {
 protected:
  void SetUp() override {
    if (const std::string why = MqttBroker::whyNot(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }

  void startBroker(const std::string& more = {}) {
    broker_.emplace(MqttBroker::Security::kNone, "log_type all\n" + more);
    agents_.emplace(broker_->port());
  }
  MqttBroker& broker() { return *broker_; }
  FakeFleet& agents() { return *agents_; }

  /// The command line `fleet COMMAND --broker ... ` with these behind it. Of `list` and `ask` the
  /// quiet time is long enough for a busy machine.
  std::vector<std::string> line(const std::string& command, std::vector<std::string> more = {}) {
    std::vector<std::string> words{"fleet",     command, "--broker", broker_->address(),
                                   "--timeout", "60"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  QovctlRun fleet(const std::string& command, std::vector<std::string> more = {}) {
    return run(line(command, std::move(more)));
  }
  void startFleet(const std::string& command, std::vector<std::string> more = {}) {
    start(line(command, std::move(more)));
  }
  /// Until qovctl gets what it has subscribed to.
  bool waitForSubscription() {
    return waitUntil(
        [&] { return broker_->log().find("Sending SUBACK to qovctl-") != std::string::npos; });
  }

 private:
  std::optional<MqttBroker> broker_;
  std::optional<FakeFleet> agents_;
};

inline std::string online(const std::string& modules = R"({"id":20,"name":"inventory"})") {
  return R"({"online":true,"version":"1.0.0","since":"2026-01-05T07:03:09Z","modules":[)" +
         modules + "]}";
}
inline const std::string kOfflineDocument = R"({"online":false,"since":"2026-01-06T08:00:00Z"})";

}  // namespace qov::test

#endif
