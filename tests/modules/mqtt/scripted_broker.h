#ifndef QOV_TESTS_MODULES_MQTT_SCRIPTED_BROKER_H
#define QOV_TESTS_MODULES_MQTT_SCRIPTED_BROKER_H

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace qov::test {

/// A broker that sends what a test writes out by hand, to one client at a time, on a free port of
/// the loopback.
///
/// Thread: one; its operations wait for the client.
/// Owns:   its sockets.
/// Errors: std::runtime_error when something does not come, or the client goes.
class ScriptedBroker {
 public:
  ScriptedBroker();
  /// With TLS, and these files in PEM.
  ScriptedBroker(const std::string& certificate, const std::string& key);
  ~ScriptedBroker();

  ScriptedBroker(const ScriptedBroker&) = delete;
  ScriptedBroker& operator=(const ScriptedBroker&) = delete;

  int port() const { return port_; }

  /// Waits for the next client, in place of the one before, and reads its CONNECT. Returns the
  /// connect flags.
  unsigned char takeClient();
  /// The client's next packet, which has less than 128 bytes behind its length.
  std::string read();
  /// Until the client sends a packet whose first byte is that.
  std::string readUntil(unsigned char first);
  /// In one piece, which is one record of TLS.
  void send(const std::string& bytes);
  /// Whether the client ends the connection.
  bool isLeft();
  void hangUp();

 private:
  std::string bytes(std::size_t count);

  const int listener_;
  int port_ = 0;
  int client_ = -1;
  std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context_;
  std::unique_ptr<SSL, void (*)(SSL*)> tls_;
};

/// A packet: the first byte, the length and what follows, less than 128 bytes.
std::string packetOf(unsigned char first, const std::string& rest);
/// CONNACK, which lets the client in; with these properties, without their length.
std::string connack(bool hadSession = false, const std::string& properties = "");
/// PUBLISH with topic "a", no payload and these properties.
std::string publishOf(const std::string& properties = "");

}  // namespace qov::test

#endif
