#ifndef QOV_TESTS_SUPPORT_MQTT_BROKER_H
#define QOV_TESTS_SUPPORT_MQTT_BROKER_H

#include <sys/types.h>

#include <string>

#include "tests/support/files.h"

namespace qov::test {

/// A free port of 127.0.0.1 that nobody else gets while it lives, but who listens on it with
/// SO_REUSEADDR.
class ReservedPort {
 public:
  ReservedPort();
  ~ReservedPort();
  ReservedPort(const ReservedPort&) = delete;
  ReservedPort& operator=(const ReservedPort&) = delete;

  int number() const { return number_; }

 private:
  const int descriptor_;
  int number_ = 0;
};

/// A real broker, mosquitto, on a free port of 127.0.0.1; gone at the end.
///
/// Thread: one.
/// Owns:   the process and a directory with its files.
/// Errors: std::runtime_error when it does not start.
class MqttBroker {
 public:
  /// Why there can be none, for a test to skip with; empty when there can.
  static std::string whyNot();

  enum class Security {
    kNone,
    kTls,             ///< its certificate is for 127.0.0.1 and localhost
    kTlsForAnother,   ///< its certificate is for another host
    kTlsWithClients,  ///< as kTls, and clients have to show a certificate
  };
  /// Starts one that lets everybody do everything, but for what `more`, lines of its configuration,
  /// says. `%d` in `more` is the directory.
  explicit MqttBroker(Security security = Security::kNone, const std::string& more = {});
  explicit MqttBroker(const std::string& more) : MqttBroker(Security::kNone, more) {}
  ~MqttBroker();
  MqttBroker(const MqttBroker&) = delete;
  MqttBroker& operator=(const MqttBroker&) = delete;

  int port() const { return port_.number(); }
  std::string address() const { return "127.0.0.1:" + std::to_string(port()); }

  /// The path of a file in its directory. With TLS there are ca.crt, and client.crt and client.key,
  /// which ca.crt vouches for.
  std::string file(const std::string& name) const { return directory_.file(name); }
  /// What it has logged.
  std::string log() const { return readFile(directory_.path() / "log"); }

  /// Ends it with `signum`. Without persistence in its configuration it forgets what it had.
  void stop(int signum);
  /// Starts it again, on the same port. Its log begins anew.
  void start();
  /// The same with other lines.
  void startWith(const std::string& more);
  /// It acknowledges nothing any more, and what it is sent dies with it if it does not go on.
  void freeze() const;
  void goOn() const;
  /// Has it write its sessions to the file mosquitto.db of its directory, which a kill leaves as
  /// they are. With persistence there.
  void saveSessions() const;
  /// Reads its accounts and access list again.
  void reload() const;

 private:
  bool comesUp();

  const TemporaryDirectory directory_;
  const Security security_;
  std::string more_;
  const ReservedPort port_;  // also while the broker is stopped
  pid_t pid_ = -1;
};

}  // namespace qov::test

#endif
