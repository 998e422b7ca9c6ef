#ifndef QOV_TESTS_MODULES_MQTT_BROKER_H
#define QOV_TESTS_MODULES_MQTT_BROKER_H

#include <sys/types.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/files.h"

namespace qov::test {

/// Debian's mosquitto on a free port of the loopback, with a folder of its own. It keeps its port
/// over restarts.
class Broker {
 public:
  static bool isInstalled();

  /// `settings` are lines of its configuration; without any it lets everybody in.
  explicit Broker(std::string settings = "allow_anonymous true\n");
  ~Broker();

  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  /// For the next start.
  void set(std::string settings) { settings_ = std::move(settings); }
  /// Until it listens.
  void start();
  void stop(int signal);
  /// It acknowledges nothing any more, and what it is sent dies with it.
  void freeze() const;
  /// Has it write its sessions to the disk, which a kill leaves as they are.
  void saveSessions();
  /// Reads its accounts and access list again.
  void reload() const;

  int port() const { return port_; }
  std::string file(const std::string& name) const { return folder_.file(name); }
  std::string log() const { return readFile(file("log")); }

 private:
  void writeConfiguration() const;

  const TemporaryDirectory folder_;
  std::string settings_;
  int port_ = 0;
  pid_t pid_ = -1;
};

/// A message that the watcher has got.
struct Seen {
  std::string topic;
  bool retained = false;
  std::string contentType;
  bool isText = false;  ///< by the payload format indicator
  std::uint64_t number = 0;
  std::string outbox;
  std::string payload;

  nlohmann::json json() const { return nlohmann::json::parse(payload); }
};

/// A client that gets all that is published below qov/, over restarts of the broker. Its session
/// outlives its connections.
class Watcher {
 public:
  explicit Watcher(const Broker& broker, const std::vector<std::string>& options = {});
  ~Watcher();

  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  /// All so far whose topics have `part` in them.
  std::vector<Seen> seen(const std::string& part) const;
  bool waitFor(const std::string& part, std::size_t count = 1) const;
  /// The last payload on a topic that ends with "/status".
  nlohmann::json status() const;

 private:
  const Broker& broker_;
  pid_t pid_ = -1;
};

}  // namespace qov::test

#endif
