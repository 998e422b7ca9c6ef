#ifndef QOV_TESTS_WIRESHARK_CAPTURE_H
#define QOV_TESTS_WIRESHARK_CAPTURE_H

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

namespace qov::test {

/// Writes a capture file: Ethernet frames with TCP over IPv4 or IPv6, a millisecond apart.
class Capture {
 public:
  explicit Capture(const std::string& file);

  /// Its name. All frames that were written are in it.
  const std::string& file();
  /// How many frames were written: the number of the last one, as tshark counts.
  unsigned int frames() const { return frames_; }
  /// The next frame comes so much later, or earlier if that is below 0.
  void pass(int milliseconds) { milliseconds_ += milliseconds; }
  /// Of every following frame only so many bytes get into the file.
  void keepAtMost(std::size_t bytes) { kept_ = bytes; }

  void writeFrame(const std::string& frame);
  std::uint16_t nextClientPort() { return clientPort_++; }
  /// How many connections there were before.
  std::uint32_t countConnection() { return connections_++; }

 private:
  const std::string file_;
  std::ofstream stream_;
  unsigned int frames_ = 0;
  std::int64_t milliseconds_ = 1700000000000;
  std::size_t kept_ = 0xFFFF;
  std::uint16_t clientPort_ = 20000;
  std::uint32_t connections_ = 0;
};

enum class Network { kIpv4, kIpv6 };
enum class Side { kClient, kServer };
/// Whether the capture has a connection's handshake.
enum class Handshake { kSeen, kMissed };

inline constexpr std::uint16_t kEndpointPort = 19001;

/// One connection of a capture. Every call writes one frame.
class Connection {
 public:
  /// `clientPort` is 0 for one that no other connection of the capture has. With the port of an
  /// earlier one this is another connection between the same addresses and ports.
  explicit Connection(Capture& capture, std::uint16_t serverPort = kEndpointPort,
                      Network network = Network::kIpv4, std::uint16_t clientPort = 0,
                      Handshake handshake = Handshake::kSeen);

  /// What tells this connection's frames from those of the capture's other connections.
  std::uint16_t clientPort() const { return clientPort_; }

  /// The next bytes of that side's stream.
  void send(Side from, const std::string& payload);
  void ask(const std::string& payload) { send(Side::kClient, payload); }
  void answer(const std::string& payload) { send(Side::kServer, payload); }
  /// The same, and the stream's end.
  void sendLast(Side from, const std::string& payload);
  /// The stream's next bytes are missing in the capture.
  void lose(Side from, std::size_t bytes) {
    stream(from).sent += static_cast<std::uint32_t>(bytes);
  }
  /// The bytes that the stream has at `position`, counted from 0, wherever it is by now.
  void sendAt(Side from, std::size_t position, const std::string& payload);

 private:
  struct Stream {
    std::uint32_t first;
    std::uint32_t sent;
  };
  Stream& stream(Side side) { return side == Side::kClient ? client_ : server_; }
  void writeSegment(Side from, std::uint32_t position, unsigned int flags,
                    const std::string& payload);

  Capture& capture_;
  const std::uint16_t clientPort_;
  const std::uint16_t serverPort_;
  const Network network_;
  // No two connections begin with the same numbers; a stream's wrap around within a few kilobytes.
  Stream client_;
  Stream server_;
};

}  // namespace qov::test

#endif
