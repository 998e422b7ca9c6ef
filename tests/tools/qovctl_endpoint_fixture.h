#ifndef QOV_TESTS_TOOLS_QOVCTL_ENDPOINT_FIXTURE_H
#define QOV_TESTS_TOOLS_QOVCTL_ENDPOINT_FIXTURE_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/link/scripted_peer.h"
#include "tests/tools/qovctl_fixture.h"

namespace qov::test {

using tests::Bytes;

inline constexpr std::uint64_t kGetNext = 1ULL << 32;
inline constexpr std::uint64_t kGet = 2ULL << 32;
inline constexpr std::uint64_t kStore = 3ULL << 32;
inline constexpr std::uint64_t kCounts = 4ULL << 32;

inline constexpr unsigned int kString = 2;
inline constexpr unsigned int kUint = 3;
inline constexpr unsigned int kEnum = 6;

/// A row of table 1 with the cells name, mtu, cursor and status.
inline Bytes row(const std::string& name, unsigned int key, unsigned int status = 0) {
  const auto text = static_cast<unsigned int>(name.size() + 1);
  Bytes bytes;
  bytes.record(kGetNext + 1, 4 + text + 4 + 2 + 4 + 1 + 4 + 1);
  bytes.cell(1, kString, text).text(name).u8(0).cell(4, kUint, 2).u16(1500);
  bytes.cell(4093, kUint, 1).u8(key).cell(4095, kEnum, 1).u8(status);
  return bytes;
}

/// What ends a walk.
inline Bytes endOfWalk() {
  return recordBytes(kGetNext + 1, 1);
}

/// The records in the body of a request.
inline std::vector<unsigned char> recordsOf(const Message& request) {
  return {request.begin() + 28, request.end()};
}

/// qovctl against an endpoint that plays scripts.
class QovctlEndpoint : public QovctlTest {
 protected:
  void plays(std::vector<ScriptedPeer::Script> scripts) {
    peer_ = std::make_unique<ScriptedPeer>(std::move(scripts));
  }
  /// Plays the script on a connection, and again on the one that is made when it has failed.
  void playsTwice(const ScriptedPeer::Script& script) { plays({script, script}); }

  /// The arguments, and where the peer listens.
  std::vector<std::string> toPeer(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--endpoint", peer_->address()});
    return arguments;
  }
  QovctlRun ask(const std::vector<std::string>& arguments, const std::string& input = {}) {
    return run(toPeer(arguments), input);
  }
  QovctlRun walk(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {"walk", "--table", "interfaces"});
    return ask(arguments);
  }
  /// The same rows as those of a table that qovctl has no names for.
  QovctlRun walkUnnamed() { return ask({"walk", "--table", "0x1001"}); }

  ScriptedPeer& peer() { return *peer_; }
  std::vector<unsigned char> firstRecords() const { return recordsOf(peer_->requests().at(0)); }

 private:
  std::unique_ptr<ScriptedPeer> peer_;
};

}  // namespace qov::test

#endif
