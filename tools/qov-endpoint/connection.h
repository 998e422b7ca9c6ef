#ifndef QOV_TOOLS_QOV_ENDPOINT_CONNECTION_H
#define QOV_TOOLS_QOV_ENDPOINT_CONNECTION_H

#include <ace/Event_Handler.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/qov-endpoint/exchanges.h"

namespace qov::endpoint {

class Connection;

/// Who has the connections, and what they all use.
class ConnectionOwner {
 public:
  virtual ~ConnectionOwner() = default;
  virtual Exchanges& exchanges() = 0;
  virtual CountsFile& counts() = 0;
  virtual const Tables& tables() const = 0;
  virtual const Log& log() const = 0;
  /// The connection is done with. It is deleted, but not before its call has returned.
  virtual void closed(Connection& connection) = 0;
  /// No connection is accepted for that long.
  virtual void refuse(std::chrono::milliseconds time) = 0;
};

/// One client. Its requests are answered one after the other, and nothing more is read from it
/// while an answer is on its way: what a client costs that does not read is bounded so.
///
/// Thread: the reactor's.
/// Owns:   the socket.
class Connection : public ACE_Event_Handler {
 public:
  enum class State {
    kReading,    ///< waits for the rest of a request
    kYielding,   ///< more requests are here, but other clients have their turn first
    kDelaying,   ///< a timer runs before the answer's first or next byte
    kSending,    ///< waits for the socket to take more of the answer
    kLingering,  ///< all is sent; the client has to close, or a timer runs out
    kClosed,
  };

  Connection(int socket, std::uint64_t ordinal, ConnectionOwner& owner, ACE_Reactor& reactor);
  ~Connection() override;

  std::uint64_t ordinal() const { return ordinal_; }
  /// Begins with what the scenario has for a connection that is accepted.
  void open();
  /// Ends the connection, once the answer on its way is sent if there is one.
  void finish();

  ACE_HANDLE get_handle() const override { return socket_; }
  int handle_input(ACE_HANDLE) override;
  int handle_output(ACE_HANDLE) override;
  int handle_timeout(const ACE_Time_Value&, const void*) override;
  /// The reactor has found the socket broken and has let it go.
  int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override;

 private:
  bool receive();
  void answerNext();
  void answer(std::size_t size);
  void deliver(Delivery delivery);
  void send();
  bool sendPiece();
  void sent();
  void endInput();
  void giveUp(const std::string& why);
  void linger();
  void close();
  void enter(State state);
  bool watch(ACE_Reactor_Mask mask);
  void enterFor(State state, std::chrono::milliseconds time);

  const int socket_;
  const std::uint64_t ordinal_;
  ConnectionOwner& owner_;
  State state_ = State::kReading;
  ACE_Reactor_Mask watched_ = NULL_MASK;
  bool finishing_ = false;
  std::uint64_t requests_ = 0;
  std::string input_;  ///< bytes received and not yet answered
  Delivery delivery_;
  std::size_t sent_ = 0;  ///< of the delivery's bytes
  Walks walks_;
};

}  // namespace qov::endpoint

#endif
