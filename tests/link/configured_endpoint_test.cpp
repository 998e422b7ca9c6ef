#include <filesystem>
#include <string>

#include "tests/diag/process_root.h"
#include "tests/link/link_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

const ScriptedPeer::Script answers = [](PeerConnection& connection) { connection.answerAll(); };

/// A link made from the configuration file. Whether anybody listens there does not matter: the
/// address is logged either way.
class ConfiguredEndpoint : public LinkTest {
 protected:
  static void configure(const std::string& mmt) { ProcessRoot::configure(mmt); }

  /// Whose numbers the log has.
  std::string address() {
    log.clear();
    const CQOVLongSocket made;
    const std::string text = log.text();
    const std::string before = " socket server, server ip is ";
    const std::size_t begin = text.find(before) + before.size();
    return text.substr(begin, text.find('\n', begin) - begin);
  }
  /// What stands in front of a cause.
  static std::string failureTo(const std::string& what) {
    return "Failed to " + what + ": " + ProcessRoot::cfgFile() + ": MMT/MMT_ADDR: ";
  }
};

TEST_F(ConfiguredEndpoint, IsTheDefaultWithoutAFile) {
  configure("");
  std::filesystem::remove(ProcessRoot::cfgFile());
  EXPECT_EQ(address(), "127.0.0.1:19001");
}

TEST_F(ConfiguredEndpoint, IsTheDefaultWithoutASection) {
  configure("");
  EXPECT_EQ(address(), "127.0.0.1:19001");
}

TEST_F(ConfiguredEndpoint, IsTheDefaultWithoutAKey) {
  configure("[MMT]\nOTHER=1\n");
  EXPECT_EQ(address(), "127.0.0.1:19001");
}

TEST_F(ConfiguredEndpoint, IsTheOneOfTheKey) {
  plays({answers});
  configure("[MMT]\nMMT_ADDR=" + peer.address() + "\n");
  log.clear();
  CQOVLongSocket made;
  EXPECT_THAT(records(), ElementsAre("INFO 65612 " + connectedTo()));
  EXPECT_EQ(made.sendMsg(&package), 0U);
}

TEST_F(ConfiguredEndpoint, MayHaveAName) {
  plays({answers});
  configure("[MMT]\nMMT_ADDR=localhost:" + std::to_string(peer.port()) + "\n");
  CQOVLongSocket made;
  EXPECT_EQ(made.sendMsg(&package), 0U);
}

TEST_F(ConfiguredEndpoint, IsTracedAsOperationsAre) {
  plays({answers});
  configure("[MMT]\nMMT_ADDR=" + peer.address() + "\n");
  log.log().priority_mask(LM_TRACE, ACE_Log_Msg::PROCESS);
  log.clear();
  const CQOVLongSocket made;
  const std::string make = "CQOVLongSocket::CQOVLongSocket()";
  const std::string setUp = "int CQOVLongSocket::setupConnection()";
  EXPECT_THAT(messages("TRACE"), ElementsAre("enter " + make + "...", "enter " + setUp + "...",
                                             "leave " + setUp + ": OK", "leave " + make + ": OK"));
}

TEST_F(ConfiguredEndpoint, IsNoneWhenTheKeyCannotBeMeant) {
  for (const std::string text : {"somewhere", "127.0.0.1:65536", "127.0.0.1:", "", "[::1]", ":1"}) {
    configure("[MMT]\nMMT_ADDR=" + text + "\n");
    log.clear();
    CQOVLongSocket made;
    EXPECT_THAT(records(),
                ElementsAre("WARN 65610 " + failureTo("read the management endpoint") + "\"" +
                                text + "\" is not host:port; no endpoint is taken in its place",
                            "ERR 65611 Failed to connect socket server, server ip is [::]:0",
                            "ERR 65830 " + failureTo("connect to the management endpoint " + text) +
                                "this is not host:port"));
    EXPECT_EQ(made.sendMsg(&package), kSocketFailed);
  }
}

TEST_F(ConfiguredEndpoint, IsMeantUpToTheLastPort) {
  configure("[MMT]\nMMT_ADDR=127.0.0.1:65535\n");
  EXPECT_EQ(address(), "127.0.0.1:65535");
  EXPECT_THAT(records("WARN"), IsEmpty());
}

TEST_F(ConfiguredEndpoint, IsNamedWithItsKeyWhenItCannotBeReached) {
  configure("[MMT]\nMMT_ADDR=" + peer.address() + "\n");
  log.clear();
  const CQOVLongSocket made;
  EXPECT_THAT(
      records(),
      ElementsAre("ERR 65611 " + notConnectedTo(),
                  "ERR 65830 " + failureTo("connect to the management endpoint " + peer.address()) +
                      "Connection refused"));
}

}  // namespace
}  // namespace qov::test
