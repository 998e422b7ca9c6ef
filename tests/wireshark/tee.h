#ifndef QOV_TESTS_WIRESHARK_TEE_H
#define QOV_TESTS_WIRESHARK_TEE_H

#include <cstdint>
#include <string>
#include <thread>

#include "tests/wireshark/capture.h"

namespace qov::test {

/// Stands between a client and an endpoint of this machine and writes down what they say on one
/// connection after the other: each piece as it came is a frame of the capture.
class Tee {
 public:
  Tee(std::uint16_t endpointPort, Capture& capture);
  /// Waits until client and endpoint have closed the last connection.
  ~Tee() { finish(); }
  Tee(const Tee&) = delete;
  Tee& operator=(const Tee&) = delete;

  /// Where the client is to connect.
  std::uint16_t port() const { return port_; }
  void finish();

  /// All that one side has said. Only behind finish().
  const std::string& said(Side side) const { return side == Side::kClient ? asked_ : answered_; }

 private:
  void serve(std::uint16_t endpointPort, Capture& capture);
  void pass(int client, int endpoint, Capture& capture);

  const int listener_;
  const std::uint16_t port_;
  std::string asked_;
  std::string answered_;
  std::thread thread_;
};

}  // namespace qov::test

#endif
