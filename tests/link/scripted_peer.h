#ifndef QOV_TESTS_LINK_SCRIPTED_PEER_H
#define QOV_TESTS_LINK_SCRIPTED_PEER_H

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/msg/bytes.h"

namespace qov::test {

using Message = std::vector<unsigned char>;

/// The serial number in the header of `message`.
std::uint16_t serialOf(const Message& message);

/// An answer to `request`: that serial number, result `ret`, these record bytes.
Message answerTo(const Message& request, const tests::Bytes& records = {}, std::uint32_t ret = 0);

/// The bytes of a record with command code `cmd` and, unless below zero, a status cell.
tests::Bytes recordBytes(std::uint64_t cmd, int status = -1);

/// The endpoint's side of one connection. Its operations end the script of the connection, by an
/// exception, when the link closes it.
class PeerConnection {
 public:
  PeerConnection(int socket, std::function<void(const Message&)> keep)
      : socket_(socket), keep_(std::move(keep)) {}

  /// Reads the header of a message.
  Message head();
  /// Reads one message.
  Message request();
  void send(const Message& bytes);
  /// Sends each byte on its own.
  void trickle(const Message& bytes);
  /// The same, with a pause behind each that a time-out for a single byte would outlast.
  void crawl(const Message& bytes);
  void answer(const tests::Bytes& records = {}, std::uint32_t ret = 0) {
    send(answerTo(request(), records, ret));
  }
  /// Answers all that comes until the link closes the connection.
  [[noreturn]] void answerAll(const tests::Bytes& records = {});
  /// Reads until the link closes the connection, without ever answering.
  void ignoreAll();
  /// Waits, without reading anything, until the link closes the connection.
  void waitForEnd();
  /// Makes the end of the script a reset instead of an orderly close.
  void reset();
  int socket() const { return socket_; }

 private:
  void receive(unsigned char* to, std::size_t length);

  const int socket_;
  const std::function<void(const Message&)> keep_;
};

/// A management endpoint that does what a test tells it: on a port of its own, one connection after
/// the other, each with the next script. Nobody listens before open() and once the last connection
/// is accepted.
class ScriptedPeer {
 public:
  using Script = std::function<void(PeerConnection&)>;

  /// Has a port, which nobody else gets, but does not listen.
  ScriptedPeer();
  /// Listens at once.
  explicit ScriptedPeer(std::vector<Script> scripts) : ScriptedPeer() { open(std::move(scripts)); }
  ~ScriptedPeer();
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  std::uint16_t port() const { return port_; }
  /// "127.0.0.1:" and the port.
  std::string address() const;

  /// Listens, for as many connections as there are scripts.
  void open(std::vector<Script> scripts);
  /// Waits until every script has come to its end.
  void join();

  /// The messages read so far.
  std::vector<Message> requests() const;
  int connections() const;

 private:
  void run(const std::vector<Script>& scripts);
  void play(int socket, const Script& script);

  std::uint16_t port_ = 0;
  const int listener_;
  mutable std::mutex mutex_;
  std::vector<Message> requests_;
  int connections_ = 0;
  std::thread thread_;
};

/// A port of this machine where nobody listens: nobody else gets it while the object lives.
using ClosedPort = ScriptedPeer;

/// A port that answers nobody: its queue of connections is full.
class QuietPort {
 public:
  QuietPort();
  ~QuietPort();
  QuietPort(const QuietPort&) = delete;
  QuietPort& operator=(const QuietPort&) = delete;

  std::uint16_t port() const { return port_; }
  /// Takes the connection that is in the queue.
  void makeRoom();

 private:
  std::uint16_t port_ = 0;
  const int listener_;
  const int waiting_;
};

}  // namespace qov::test

#endif
