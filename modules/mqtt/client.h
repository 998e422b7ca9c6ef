#ifndef QOV_MODULES_MQTT_CLIENT_H
#define QOV_MODULES_MQTT_CLIENT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "modules/mqtt/cause.h"
#include "modules/mqtt/connection.h"
#include "modules/mqtt/settings.h"

struct mosquitto;

namespace qov::mqtt {

/// libmosquitto's client, MQTT 5, without a thread of its own.
///
/// Each connection has a `mosquitto` of its own: one that is used again keeps the former broker's
/// limits. So what it was given to publish is forgotten with the connection.
///
/// Thread: one.
/// Errors: the constructor throws CQOV_Exception.
class Client {
 public:
  /// Is told what has happened by serve(). What the broker calls a reason is 128 or more where it
  /// refuses.
  class Listener {
   public:
    virtual ~Listener() = default;
    /// `hadSession`: the broker knew this client from before. `retains`: it keeps messages for
    /// those who come later.
    virtual void onAnswer(int reason, bool hadSession, bool retains) = 0;
    virtual void onPublished(int id, int reason) = 0;
    virtual void onSubscribed(int id, int reason) = 0;
    virtual void onReceived(Incoming&& message) = 0;
    /// The broker ends the connection for that reason.
    virtual void onEnd(int reason) = 0;
  };

  Client(const Settings& settings, const std::string& clientId, Listener& listener);
  ~Client();

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// Begins to connect, with `will` as the last will on `topic`, retained. With `forgets` the
  /// broker drops the session that it has, with what waits there. The answer comes to the listener.
  /// Waits for the name server, and for nothing else.
  std::optional<Cause> connect(const std::string& topic, const std::string& will, bool forgets);

  /// -1 while there is no connection.
  int socket() const;
  bool wantsToWrite() const;
  /// Whether TLS holds something to read that does not make the socket readable any more.
  bool hasUnread() const;
  /// Reads and writes what can be, and keeps the connection alive: to be called at least once a
  /// second. The cause if the connection has broken.
  std::optional<Cause> serve(bool canRead, bool canWrite);
  /// Sends what publish() and serve() have written. Small packets wait for it and go together.
  void flush() const;
  /// Closes the connection. With `orderly` the broker forgets the last will.
  void disconnect(bool orderly);

  /// Sets `id`, which onPublished() gets. Returns 0, or the reason for which the broker would
  /// refuse it: it is not taken over then.
  int publish(const Outgoing& message, bool retain, int& id);
  /// Sets `id`, which onSubscribed() gets. The cause if nothing was sent.
  std::optional<Cause> subscribe(const std::string& filter, int& id);

 private:
  struct Callbacks;

  std::optional<Cause> make(bool cleanStart);
  int configureTls();
  int keepAlive() const;
  std::optional<Cause> setPassword();
  const char* addressToComeFrom() const;
  std::optional<Cause> causeOf(int result) const;

  const Settings settings_;
  const std::string clientId_;
  Listener& listener_;

  std::unique_ptr<mosquitto, void (*)(mosquitto*)> client_;
  std::uint32_t largestPacket_ = 0;  ///< that the broker takes
  bool hasAnswer_ = true;            ///< the broker has answered the last try to connect
  bool takesOtherKind_ = false;      ///< of addresses; see addressToComeFrom()
  std::string libraryError_;         ///< the first one of the call that is being made
};

}  // namespace qov::mqtt

#endif
