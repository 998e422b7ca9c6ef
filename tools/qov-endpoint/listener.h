#ifndef QOV_TOOLS_QOV_ENDPOINT_LISTENER_H
#define QOV_TOOLS_QOV_ENDPOINT_LISTENER_H

#include <ace/Event_Handler.h>
#include <ace/INET_Addr.h>

#include <chrono>
#include <functional>
#include <string>

#include "tools/qov-endpoint/log.h"

namespace qov::endpoint {

/// Where to listen.
struct Address {
  ACE_INET_Addr at;           ///< port 0 takes a free one
  std::chrono::seconds wait;  ///< for a port that is in use: a client may have it for the moment
};

/// ADDRESS:PORT, or [ADDRESS]:PORT of IPv6.
std::string textOf(const ACE_INET_Addr& address);

/// The port that clients connect to. It is bound once and stays this process's own to the end, also
/// while connections are refused: nobody else can take it in between.
///
/// Thread: the reactor's.
/// Owns:   the listening socket.
/// Errors: std::runtime_error from the constructor; later ones are the accepted connection's.
class Listener : public ACE_Event_Handler {
 public:
  /// Gets the socket of an accepted connection, which is its to close.
  using Accepted = std::function<void(int socket)>;

  Listener(const Address& address, const Log& log, ACE_Reactor& reactor, Accepted accepted);
  ~Listener() override;

  /// The address with the port that it got.
  const ACE_INET_Addr& address() const { return address_; }
  /// Refuses connections for that long, or longer if it was told so before. Those that wait to be
  /// accepted are reset.
  void refuse(std::chrono::milliseconds time);
  /// Accepts nothing more.
  void stop();

  ACE_HANDLE get_handle() const override { return socket_; }
  int handle_input(ACE_HANDLE) override;
  int handle_timeout(const ACE_Time_Value&, const void*) override;

 private:
  void bind(std::chrono::seconds wait, const Log& log);
  void listen();
  void pause(std::chrono::milliseconds time);

  ACE_INET_Addr address_;
  const Accepted accepted_;
  int socket_ = -1;
  bool listening_ = false;
  bool registered_ = false;  ///< with the reactor; not while there is no handle for a connection
  std::chrono::steady_clock::time_point until_;
};

}  // namespace qov::endpoint

#endif
