#include "tests/wireshark/capture.h"

#include <algorithm>
#include <stdexcept>

namespace qov::test {
namespace {

// Networks' numbers begin with their highest byte, the capture file's own with the lowest.
void putHighFirst(std::string& to, std::uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) {
    to += static_cast<char>(value >> 8 * i);
  }
}
void putLowFirst(std::string& to, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) {
    to += static_cast<char>(value >> 8 * i);
  }
}

constexpr unsigned int kFin = 0x01;
constexpr unsigned int kSyn = 0x02;
constexpr unsigned int kPush = 0x08;
constexpr unsigned int kAck = 0x10;
constexpr unsigned int kTcp = 6;
constexpr std::size_t kTcpHead = 20;

std::string ethernetHead(Side from, Network network) {
  const bool up = from == Side::kClient;
  std::string head;
  putHighFirst(head, up ? 0x020000000002 : 0x020000000001, 6);
  putHighFirst(head, up ? 0x020000000001 : 0x020000000002, 6);
  putHighFirst(head, network == Network::kIpv4 ? 0x0800 : 0x86DD, 2);
  return head;
}

std::string ipv4Head(Side from, std::size_t length) {
  std::string head;
  putHighFirst(head, 0x4500, 2);
  putHighFirst(head, 20 + length, 2);
  putHighFirst(head, 0x00004000, 4);  // not in fragments
  putHighFirst(head, 64, 1);
  putHighFirst(head, kTcp, 1);
  putHighFirst(head, 0, 2);  // the checksum: as if the network card filled it in
  putHighFirst(head, from == Side::kClient ? 0x0A000001 : 0x0A000002, 4);
  putHighFirst(head, from == Side::kClient ? 0x0A000002 : 0x0A000001, 4);
  return head;
}

std::string ipv6Head(Side from, std::size_t length) {
  std::string head;
  putHighFirst(head, 0x60000000, 4);
  putHighFirst(head, length, 2);
  putHighFirst(head, kTcp, 1);
  putHighFirst(head, 64, 1);
  for (const bool source : {true, false}) {
    putHighFirst(head, 0xFD00000000000000, 8);
    putHighFirst(head, source == (from == Side::kClient) ? 1 : 2, 8);
  }
  return head;
}

}  // namespace

Capture::Capture(const std::string& file) : file_(file), stream_(file, std::ios::binary) {
  std::string head;
  putLowFirst(head, 0xA1B2C3D4, 4);
  putLowFirst(head, 2, 2);
  putLowFirst(head, 4, 2);
  putLowFirst(head, 0, 8);
  putLowFirst(head, 0x40000, 4);
  putLowFirst(head, 1, 4);  // Ethernet
  stream_ << head;
}

void Capture::writeFrame(const std::string& frame) {
  ++frames_;
  ++milliseconds_;
  const std::size_t kept = std::min(kept_, frame.size());
  const auto now = static_cast<std::uint64_t>(milliseconds_);
  std::string head;
  putLowFirst(head, now / 1000, 4);
  putLowFirst(head, now % 1000 * 1000, 4);
  putLowFirst(head, kept, 4);
  putLowFirst(head, frame.size(), 4);
  stream_ << head << frame.substr(0, kept);
}

const std::string& Capture::file() {
  if (!stream_.flush()) {
    throw std::runtime_error("cannot write " + file_);
  }
  return file_;
}

Connection::Connection(Capture& capture, std::uint16_t serverPort, Network network,
                       std::uint16_t clientPort, Handshake handshake)
    : capture_(capture),
      clientPort_(clientPort != 0 ? clientPort : capture.nextClientPort()),
      serverPort_(serverPort),
      network_(network),
      client_{0xFFFFF000 + capture.countConnection() % 0x800, 0},
      server_{client_.first + 0x2000, 0} {
  if (handshake == Handshake::kSeen) {
    // It takes one number of each stream.
    writeSegment(Side::kClient, static_cast<std::uint32_t>(-1), kSyn, "");
    writeSegment(Side::kServer, static_cast<std::uint32_t>(-1), kSyn | kAck, "");
    writeSegment(Side::kClient, 0, kAck, "");
  }
}

void Connection::send(Side from, const std::string& payload) {
  sendAt(from, stream(from).sent, payload);
  stream(from).sent += static_cast<std::uint32_t>(payload.size());
}

void Connection::sendLast(Side from, const std::string& payload) {
  writeSegment(from, stream(from).sent, kPush | kAck | kFin, payload);
  stream(from).sent += static_cast<std::uint32_t>(payload.size()) + 1;
}

void Connection::sendAt(Side from, std::size_t position, const std::string& payload) {
  writeSegment(from, static_cast<std::uint32_t>(position), kPush | kAck, payload);
}

void Connection::writeSegment(Side from, std::uint32_t position, unsigned int flags,
                              const std::string& payload) {
  const bool up = from == Side::kClient;
  const Stream& mine = stream(from);
  const Stream& other = stream(up ? Side::kServer : Side::kClient);
  const std::size_t length = kTcpHead + payload.size();
  std::string frame = ethernetHead(from, network_);
  frame += network_ == Network::kIpv4 ? ipv4Head(from, length) : ipv6Head(from, length);
  putHighFirst(frame, up ? clientPort_ : serverPort_, 2);
  putHighFirst(frame, up ? serverPort_ : clientPort_, 2);
  putHighFirst(frame, mine.first + position, 4);
  putHighFirst(frame, (flags & kAck) != 0 ? other.first + other.sent : 0, 4);
  putHighFirst(frame, kTcpHead / 4 << 12 | flags, 2);
  putHighFirst(frame, 0xFFFF, 2);  // window
  putHighFirst(frame, 0, 4);       // checksum as above, no urgent data
  capture_.writeFrame(frame + payload);
}

}  // namespace qov::test
