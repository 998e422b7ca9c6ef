// Names of endpoints, in a program whose names are the test's own.
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/diag/process_root.h"
#include "tests/link/link_fixture.h"
#include "tests/link/scripted_names.h"
#include "tests/link/scripted_waits.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;

namespace qov::test {
namespace {

const ScriptedPeer::Script answers = [](PeerConnection& connection) { connection.answerAll(); };

/// A link of a derived class that is given its endpoint as text.
class NamedLink : public CQOVLongSocket {
 public:
  using CQOVLongSocket::Limits;
  using CQOVLongSocket::whyNotConnected;
  explicit NamedLink(const std::string& endpoint, const Limits& limits = endless())
      : CQOVLongSocket(endpoint, limits) {}
};

class EndpointName : public LinkTest {
 protected:
  EndpointName() { ScriptedNames::forget(); }

  std::string port() const { return std::to_string(peer.port()); }
  std::string named(const std::string& name) const { return name + ":" + port(); }
};

/// Two loopback addresses with one port: nobody takes connections at the first, the second does.
class QuietAndOpen {
 public:
  QuietAndOpen() {
    do {
      ::close(open_);
      quiet_ = std::make_unique<QuietPort>();
      open_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    } while (!listens());
  }
  ~QuietAndOpen() { ::close(open_); }
  QuietAndOpen(const QuietAndOpen&) = delete;
  QuietAndOpen& operator=(const QuietAndOpen&) = delete;

  std::uint16_t port() const { return quiet_->port(); }
  static constexpr const char* kQuiet = "127.0.0.1";
  static constexpr const char* kOpen = "127.0.0.2";

 private:
  /// False when another process has the port at the second address.
  bool listens() const {
    const ACE_INET_Addr address(port(), kOpen);
    const auto* name = static_cast<const sockaddr*>(address.get_addr());
    return ::bind(open_, name, static_cast<socklen_t>(address.get_size())) == 0 &&
           ::listen(open_, 1) == 0;
  }

  std::unique_ptr<QuietPort> quiet_;
  int open_ = -1;
};

TEST_F(EndpointName, IsTriedWithAllItsAddressesInOrder) {
  plays({answers});
  ScriptedNames::know("endpoint", {"::1", "127.0.0.2", "127.0.0.1"});
  NamedLink made(named("endpoint"));
  EXPECT_THAT(records(), ElementsAre("INFO 65612 " + connectedTo()));
  EXPECT_EQ(made.whyNotConnected(), "");
  EXPECT_EQ(made.sendMsg(&package), 0U);
}

TEST_F(EndpointName, HasTimeForTheSecondAddressWhenTheFirstTakesAllOfItsOwn) {
  const QuietAndOpen both;
  ScriptedNames::know("endpoint", {QuietAndOpen::kQuiet, QuietAndOpen::kOpen});
  NamedLink::Limits limits = endless();
  limits.connect.set(2);
  const NamedLink made("endpoint:" + std::to_string(both.port()), limits);
  EXPECT_THAT(records(),
              ElementsAre("INFO 65612 Successed to connect socket server, server ip is 127.0.0.2:" +
                          std::to_string(both.port())));
}

TEST_F(EndpointName, IsGivenUpWithAllItsAddressesWhenItIsInterrupted) {
  const QuietAndOpen both;
  NamedLink made("endpoint:" + std::to_string(both.port()));
  ScriptedNames::know("endpoint", {QuietAndOpen::kQuiet, QuietAndOpen::kOpen});
  const InsteadOfWaits interrupted([&](const InsteadOfWaits::Wait& real, int) {
    made.interrupt();
    const int ready = real();
    made.resume();
    return ready;
  });
  EXPECT_EQ(made.setupConnection(), -1);
  EXPECT_EQ(made.whyNotConnected(),
            "127.0.0.1:" + std::to_string(both.port()) + ": Operation canceled");
}

TEST_F(EndpointName, IsReportedWithWhatBecameOfEachAddress) {
  ScriptedNames::know("endpoint", {"127.0.0.2", "127.0.0.1"});
  NamedLink made(named("endpoint"));
  const std::string why =
      named("127.0.0.2") + ": Connection refused; " + named("127.0.0.1") + ": Connection refused";
  EXPECT_EQ(made.whyNotConnected(), why);
  EXPECT_THAT(records(), ElementsAre("ERR 65611 " + notConnectedTo(),
                                     "ERR 65830 Failed to connect to the management endpoint " +
                                         named("endpoint") + ": " + why));
  plays({answers});
  EXPECT_EQ(made.setupConnection(), 0);
  EXPECT_EQ(made.whyNotConnected(), "");
}

TEST_F(EndpointName, IsLookedUpAgainUntilItIsKnown) {
  ProcessRoot::configure("[MMT]\nMMT_ADDR=" + named("endpoint") + "\n");
  log.clear();
  CQOVLongSocket made;
  EXPECT_THAT(
      records(),
      ElementsAre("ERR 65611 Failed to connect socket server, server ip is [::]:0",
                  "ERR 65830 Failed to connect to the management endpoint " + named("endpoint") +
                      ": " + ProcessRoot::cfgFile() + ": MMT/MMT_ADDR: no such host"));
  plays({answers});
  ScriptedNames::know("endpoint", {"127.0.0.1"});
  EXPECT_EQ(made.sendMsg(&package), 0U);
}

TEST_F(EndpointName, IsNotLookedUpAgainOnceItIsKnown) {
  ScriptedNames::know("endpoint", {"127.0.0.1"});
  NamedLink made(named("endpoint"));
  EXPECT_EQ(made.setupConnection(), -1);
  plays({answers});
  EXPECT_EQ(made.setupConnection(), 0);
  EXPECT_EQ(ScriptedNames::lookUps(), 1);
}

TEST_F(EndpointName, IsReportedWithWhatTheSystemSaysWhenItCannotLookItUp) {
  ScriptedNames::failWith(EAI_AGAIN);
  const NamedLink made(named("endpoint"));
  EXPECT_EQ(made.whyNotConnected(),
            "the host cannot be looked up: Temporary failure in name resolution");
}

TEST_F(EndpointName, OfThisMachineNeedsNoHostsFile) {
  plays({answers});
  ScriptedNames::failWith(EAI_AGAIN);
  const NamedLink made(named("localhost"));
  EXPECT_THAT(records(), ElementsAre("INFO 65612 " + connectedTo()));
}

TEST_F(EndpointName, OfThisMachineIsTheOneOfTheHostsFile) {
  ScriptedNames::know("localhost", {"127.0.0.2"});
  const NamedLink made(named("localhost"));
  EXPECT_THAT(records("ERR"), ElementsAre(EndsWith(" server ip is " + named("127.0.0.2")),
                                          EndsWith(": Connection refused")));
}

TEST_F(EndpointName, MayBeLeftOutForThisMachine) {
  plays({answers});
  const NamedLink made(port());
  EXPECT_THAT(records(), ElementsAre("INFO 65612 " + connectedTo()));
  EXPECT_EQ(ScriptedNames::lookUps(), 0);
}

}  // namespace
}  // namespace qov::test
