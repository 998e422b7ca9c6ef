#ifndef QOV_TESTS_TOOLS_ENDPOINT_CLIENT_H
#define QOV_TESTS_TOOLS_ENDPOINT_CLIENT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qov::test {

// The bytes of messages, written without the library's codec.

/// The `bytes` lowest bytes of `value`, the lowest one first.
std::string le(std::uint64_t value, int bytes);
std::string cell(unsigned tag, unsigned type, const std::string& value);
std::string number(unsigned tag, std::uint64_t value, int bytes = 1);  ///< Uint
std::string text(unsigned tag, const std::string& value);              ///< String
std::string status(std::uint8_t value);
inline std::string cursor(std::uint64_t key, int bytes = 1) {
  return number(4093, key, bytes);
}
std::string record(std::uint64_t command, const std::string& cells = {});
std::string message(std::uint16_t serial, const std::string& records, std::uint32_t result = 0);

inline constexpr std::uint64_t kGetNextOf = 1ULL << 32;
inline constexpr std::uint64_t kGetOf = 2ULL << 32;
inline constexpr std::uint64_t kStoreTo = 3ULL << 32;
inline constexpr std::uint64_t kCountsOf = 4ULL << 32;

/// Whether this machine has the address ::1.
bool hasIpv6Loopback();

/// A connection to an endpoint on this machine.
class EndpointClient {
 public:
  /// `room` is about how many bytes the kernel receives in advance; 0 leaves that to it.
  explicit EndpointClient(std::uint16_t port, int room = 0);
  /// One by IPv6.
  static EndpointClient byIpv6(std::uint16_t port);
  ~EndpointClient() { close(); }
  EndpointClient(EndpointClient&& other) noexcept;
  EndpointClient& operator=(EndpointClient&&) = delete;
  EndpointClient(const EndpointClient&) = delete;
  EndpointClient& operator=(const EndpointClient&) = delete;

  bool connected() const { return socket_ >= 0; }
  void send(const std::string& bytes) const;
  /// Up to `size` bytes: fewer when the other side closes before, or is silent for too long.
  std::string receive(std::size_t size) const;
  /// One message by the length in its head.
  std::string receiveMessage() const;
  std::string exchange(const std::string& request) const {
    send(request);
    return receiveMessage();
  }
  /// Everything up to the other side's end.
  std::string receiveAll() const { return receive(SIZE_MAX); }
  /// True if nothing is there to be read now.
  bool isSilent() const;
  void closeSending() const;
  void close();

 private:
  EndpointClient() = default;

  int socket_ = -1;
};

}  // namespace qov::test

#endif
