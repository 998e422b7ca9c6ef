#ifndef QOV_TESTS_LINK_LINK_FIXTURE_H
#define QOV_TESTS_LINK_LINK_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_long_socket.h>

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/diag/log_capture.h"
#include "tests/link/scripted_peer.h"
#include "tests/support/latch.h"

namespace qov::test {

/// A link to a port of this machine, with the time-outs that a test wants.
class TestLink : public CQOVLongSocket {
 public:
  using CQOVLongSocket::Limits;

  explicit TestLink(std::uint16_t port) : TestLink(port, Limits()) {}
  TestLink(std::uint16_t port, const Limits& limits)
      : CQOVLongSocket(ACE_INET_Addr(port, "127.0.0.1"), limits) {}
  virtual ~TestLink() = default;
};

/// Time-outs that no test lives to see the end of.
inline TestLink::Limits endless() {
  TestLink::Limits limits;
  limits.connect = limits.send = limits.reply = ACE_Time_Value(3600);
  return limits;
}

/// The same, but for a short one for the reply: for tests in which none comes.
inline TestLink::Limits shortReply() {
  TestLink::Limits limits = endless();
  limits.reply.set(0, 100000);
  return limits;
}

/// The text of `package` in the log.
std::string dumpOf(const CT7QPackageV3& package);

/// The descriptors of this process's connections to `port`.
std::vector<int> socketsTo(std::uint16_t port);

/// What the test's thread logs, and an endpoint that plays the test's scripts.
class LinkTest : public ::testing::Test {
 protected:
  using Strings = std::vector<std::string>;

  static constexpr unsigned int kNotEncoded = 0x1005001;
  static constexpr unsigned int kBadReply = 0x1005002;
  static constexpr unsigned int kSocketFailed = 0x1005008;

  LinkTest() { package.addRecord(1); }

  void plays(std::vector<ScriptedPeer::Script> scripts) { peer.open(std::move(scripts)); }
  /// Makes the link and forgets what it has logged about that.
  void connects() { connects(TestLink::Limits()); }
  void connects(const TestLink::Limits& limits) {
    link = std::make_unique<TestLink>(peer.port(), limits);
    log.clear();
  }
  /// Makes the system hold no more than a few thousand bytes that the peer has not taken, so that
  /// one send cannot take a larger request.
  void holdsLittle() const;
  /// Makes the request larger than one send takes after holdsLittle().
  void makeLarge();
  /// A script that counts the connection and reads nothing.
  ScriptedPeer::Script readsNothing();
  /// Sends until it takes no more, and gives the result of the send that fails.
  unsigned int sendsUntilNothingIsTaken();
  unsigned int sends() { return link->sendMsg(&package); }
  unsigned int walks() { return link->sendGetNextMsgV3(&package); }

  /// The records logged since, as "TAG id message"; "" stands for every tag.
  Strings records(const std::string& tag = "") const;
  /// The messages of those with `tag`.
  Strings messages(const std::string& tag) const;

  /// Which operation the records name, as "id function"; each once.
  std::set<std::string> operations() const;

  /// The messages of the errors, that of the failed exchange excepted.
  Strings causes() const;

  std::string connectedTo() const {
    return "Successed to connect socket server, server ip is " + peer.address();
  }
  std::string notConnectedTo() const {
    return "Failed to connect socket server, server ip is " + peer.address();
  }
  /// Why not, when nobody listens.
  std::string refused() const {
    return "Failed to connect to the management endpoint " + peer.address() +
           ": Connection refused";
  }

  LogCapture log{LogCapture::kAllLevels & ~static_cast<u_long>(LM_TRACE)};
  Latch connected;
  Latch mayEnd;
  // The link goes first: scripts end when it closes the connection.
  ScriptedPeer peer;
  CT7QPackageV3 package;
  std::unique_ptr<TestLink> link;
};

}  // namespace qov::test

#endif
