#include <gtest/gtest.h>

#include <map>

#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/tshark.h"
#include "tests/wireshark/vectors.h"

namespace qov::test {
namespace {

// The vectors that can be decoded, or those that cannot.
std::vector<StreamVector> vectors(bool refused) {
  std::vector<StreamVector> chosen;
  for (StreamVector& vector : vectorsOfV3()) {
    if (vector.refused.empty() != refused) {
      chosen.push_back(std::move(vector));
    }
  }
  return chosen;
}

std::map<std::uint16_t, std::vector<Shown>> byClient(const std::vector<Shown>& messages) {
  std::map<std::uint16_t, std::vector<Shown>> sorted;
  for (const Shown& message : messages) {
    sorted[message.clientPort].push_back(message);
  }
  return sorted;
}

// A connection that carries a vector's bytes again and again.
class Copies {
 public:
  Copies(Capture& capture, const StreamVector& vector)
      : vector_(vector), connection_(capture, kEndpointPort) {}

  // One segment each time; then two segments, with the cut at every byte in turn; then one byte per
  // segment; then three copies and a half in one, the rest in the next; the other side last.
  void sendInEveryWay() {
    const std::string& bytes = vector_.bytes;
    send(bytes);
    for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
      send(bytes.substr(0, cut));
      connection_.ask(bytes.substr(cut));
    }
    ++copies_;
    for (const char byte : bytes) {
      connection_.ask(std::string(1, byte));
    }
    copies_ += 4;
    connection_.ask(bytes + bytes + bytes + bytes.substr(0, bytes.size() / 2));
    connection_.ask(bytes.substr(bytes.size() / 2));
    ++copies_;
    connection_.answer(bytes);
  }

  void expect(const std::vector<Shown>& shown) const {
    ASSERT_EQ(shown.size(), copies_ * vector_.messages.size());
    for (std::size_t i = 0; i < shown.size(); ++i) {
      ASSERT_EQ(meaningOf(shown[i].tree), vector_.messages[i % vector_.messages.size()])
          << "copy " << i / vector_.messages.size();
    }
  }

  const StreamVector& vector() const { return vector_; }
  std::uint16_t clientPort() const { return connection_.clientPort(); }

 private:
  void send(const std::string& bytes) {
    ++copies_;
    connection_.ask(bytes);
  }

  const StreamVector& vector_;
  Connection connection_;
  std::size_t copies_ = 0;
};

TEST(WiresharkVectors, AreShownAsTheyMeanHoweverTheyAreCutIntoSegments) {
  const std::vector<StreamVector> good = vectors(false);
  ASSERT_FALSE(good.empty());
  const TemporaryDirectory directory;
  Capture capture(directory.file("vectors.pcap"));
  std::vector<std::unique_ptr<Copies>> connections;
  for (const StreamVector& vector : good) {
    connections.push_back(std::make_unique<Copies>(capture, vector));
    connections.back()->sendInEveryWay();
  }
  const auto shown = byClient(Tshark().messages(capture.file()));
  for (const auto& connection : connections) {
    SCOPED_TRACE(connection->vector().name);
    ASSERT_EQ(shown.count(connection->clientPort()), 1U);
    connection->expect(shown.at(connection->clientPort()));
  }
}

TEST(WiresharkVectors, AreNamedWithWhatTheyAreRefusedFor) {
  const std::vector<StreamVector> bad = vectors(true);
  ASSERT_FALSE(bad.empty());
  const TemporaryDirectory directory;
  Capture capture(directory.file("refused.pcap"));
  std::map<std::string, std::uint16_t> ports;
  for (const StreamVector& vector : bad) {
    Connection connection(capture);
    connection.sendLast(Side::kClient, vector.bytes);
    ports[vector.name] = connection.clientPort();
  }
  const auto shown = byClient(Tshark().messages(capture.file()));
  for (const StreamVector& vector : bad) {
    SCOPED_TRACE(vector.name);
    ASSERT_EQ(shown.count(ports[vector.name]), 1U);
    const std::vector<Shown>& messages = shown.at(ports[vector.name]);
    ASSERT_GT(messages.size(), vector.messages.size());
    for (std::size_t i = 0; i < vector.messages.size(); ++i) {
      EXPECT_EQ(meaningOf(messages[i].tree), vector.messages[i]);
    }
    const std::vector<std::string> experts = messages[vector.messages.size()].experts();
    EXPECT_NE(std::find(experts.begin(), experts.end(), vector.refused), experts.end())
        << vector.refused << " is not among: " << ::testing::PrintToString(experts);
  }
}

}  // namespace
}  // namespace qov::test
