// What a link and an endpoint really say to one another.

#include <gtest/gtest.h>
#include <qovpub/qov_long_socket.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>

#include "tests/diag/log_capture.h"
#include "tests/support/files.h"
#include "tests/tools/endpoint_process.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/messages.h"
#include "tests/wireshark/qovctl_decode.h"
#include "tests/wireshark/tee.h"
#include "tests/wireshark/tshark.h"

namespace qov::test {
namespace {

constexpr const char* kTables = R"({"tables":[
    {"name":"things","number":7,"rows":[
      {"key":2,"cells":[{"tag":1,"type":"String","value":"first"},
                        {"tag":2,"type":"Uint","value":77}]},
      {"key":300,"cells":[{"tag":1,"type":"String","value":"last"}]}]}]})";

class Link : public CQOVLongSocket {
 public:
  explicit Link(std::uint16_t port) : CQOVLongSocket(ACE_INET_Addr(port, "127.0.0.1"), Limits()) {}
};

class WiresharkRealCapture : public ::testing::Test {
 protected:
  // The second answer comes byte by byte.
  void SetUp() override { listens("drip:request=2,count=1"); }

  void listens(const std::string& fault) {
    tee_.reset();
    ASSERT_TRUE(endpoint_.start(
        {"--quiet", "--tables", endpoint_.file("tables.json", kTables), "--fault", fault}))
        << endpoint_.errors();
    tee_ = std::make_unique<Tee>(endpoint_.port(), capture_);
  }

  // A walk, a request that is refused, and one that stores a record.
  void talk() {
    Link link(tee_->port());
    CT7QPackageV3 walk;
    walk.addRecord(kGetNextOf + 7);
    EXPECT_EQ(link.sendGetNextMsgV3(&walk), 0U);
    CT7QPackageV3 unknown;
    unknown.addRecord(kGetNextOf + 8);
    EXPECT_EQ(link.sendMsg(&unknown), 2U);
    CT7QPackageV3 store;
    store.addRecord(kStoreTo + 0x1000);
    EXPECT_EQ(link.sendMsg(&store), 0U);
  }

  const LogCapture log_{0};
  const TemporaryDirectory directory_;
  EndpointProcess endpoint_;
  Capture capture_{directory_.file("real.pcap")};
  std::unique_ptr<Tee> tee_;
};

TEST_F(WiresharkRealCapture, ShowsWhatBothSaidAndToWhat) {
  talk();
  tee_->finish();
  const std::vector<Shown> shown = Tshark({"-2"}).messages(capture_.file());
  ASSERT_EQ(shown.size(), 10U);
  for (std::size_t i = 0; i < shown.size(); i += 2) {
    SCOPED_TRACE(i);
    const Json::Value& request = shown[i].tree;
    const Json::Value& response = shown[i + 1].tree;
    EXPECT_TRUE(shown[i].fromClient);
    EXPECT_TRUE(request.isMember("qov.v3.request"));
    EXPECT_TRUE(response.isMember("qov.v3.response"));
    EXPECT_EQ(request["qov.v3.ser"], response["qov.v3.ser"]);
    EXPECT_EQ(request["qov.v3.response_in"], std::to_string(shown[i + 1].frame));
    EXPECT_EQ(response["qov.v3.response_to"], std::to_string(shown[i].frame));
  }
  const auto answered = [&](std::size_t exchange) -> const Json::Value& {
    return shown[2 * exchange + 1].tree;
  };
  const auto firstCell = [&](std::size_t exchange) {
    return all(answered(exchange)["qov.v3.record"], "qov.v3.cell").at(0);
  };
  EXPECT_EQ(firstCell(0)["qov.v3.cell.string"], "first");
  EXPECT_EQ(firstCell(1)["qov.v3.cell.string"], "last");
  EXPECT_EQ(firstCell(2)["qov.v3.status"], "1");
  EXPECT_EQ(answered(3)["qov.v3.ret"], "2");
  EXPECT_EQ(firstCell(4)["qov.v3.cell.uint"], "1");
}

TEST_F(WiresharkRealCapture, ShowsWhatQovctlFindsInTheSameBytes) {
  talk();
  tee_->finish();
  const std::vector<Shown> shown = Tshark().messages(capture_.file());
  for (const Side side : {Side::kClient, Side::kServer}) {
    std::vector<Shown> ofSide;
    std::copy_if(shown.begin(), shown.end(), std::back_inserter(ofSide),
                 [&](const Shown& one) { return one.fromClient == (side == Side::kClient); });
    EXPECT_EQ(ofSide.size(), 5U);
    expectAgreement(ofSide, decodeWithQovctl(tee_->said(side)));
  }
}

TEST_F(WiresharkRealCapture, ShowsEveryRequestThatTheLinkSendsAgain) {
  constexpr std::size_t kTimes = 20;
  for (const char* const after : {"0", "10", "30"}) {
    // Every connection is lost by its second request, and the same comes again on the next one.
    listens(std::string("close:request=2,after=") + after);
    Link link(tee_->port());
    for (std::size_t i = 0; i <= kTimes; ++i) {
      CT7QPackageV3 package;
      package.addRecord(kGetNextOf + 7);
      EXPECT_EQ(link.sendMsg(&package), 0U);
    }
  }
  tee_->finish();
  std::size_t repeated = 0;
  std::map<std::string, std::string> requests;
  for (const Shown& shown : Tshark().messages(capture_.file())) {
    if (!shown.tree.isMember("qov.v3.request")) {
      continue;
    }
    const auto [first, isNew] =
        requests.emplace(shown.tree["qov.v3.ser"].asString(), std::to_string(shown.frame));
    EXPECT_EQ(shown.tree.get("qov.v3.repeats", "").asString(), isNew ? "" : first->second);
    repeated += isNew ? 0 : 1;
  }
  EXPECT_EQ(repeated, 3 * kTimes);
}

}  // namespace
}  // namespace qov::test
