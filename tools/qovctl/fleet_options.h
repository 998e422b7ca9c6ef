#ifndef QOV_TOOLS_QOVCTL_FLEET_OPTIONS_H
#define QOV_TOOLS_QOVCTL_FLEET_OPTIONS_H

#include <qovpub/qov_message_package.h>

#include <cstdint>
#include <optional>
#include <string>

namespace qov::ctl {

/// Which broker, and who asks it.
struct BrokerTarget {
  std::string address;      ///< HOST[:PORT]
  std::string caFile;       ///< with it the connection is TLS
  std::string certificate;  ///< of the client, and its key
  std::string key;
  std::string user;
  std::string passwordFile;
  double timeout = 5;  ///< seconds, for connecting and for what the broker is asked
};

struct BrokerAddress {
  std::string host;
  std::optional<int> port;
};
/// HOST, HOST:PORT or [HOST]:PORT; nothing for another text.
std::optional<BrokerAddress> brokerAddressOf(const std::string& text);

/// What the commands of "qovctl fleet" have in common.
struct FleetOptions {
  BrokerTarget broker;
  std::string agents = "*/*";  ///< NODE/PROCESS, a pattern
  double quiet = 1;            ///< seconds without a status document that tell that all are there
  bool json = false;
};

// Each prints what came and throws Failure for what did not. Without libmosquitto each throws it at
// once.

/// The agents that the broker knows.
void listFleet(const FleetOptions& options);

/// Their events, for so many seconds or until a signal ends the program.
void watchFleet(const FleetOptions& options, std::optional<double> seconds);

/// Sends the request to module `module` of each agent and prints what they answer.
void askFleet(const FleetOptions& options, std::uint8_t module, const CQOV_MsgPackage& request);

}  // namespace qov::ctl

#endif
