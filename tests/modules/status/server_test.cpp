// Several clients at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/modules/status/served_socket.h"
#include "tests/support/latch.h"
#include "tests/support/process_end.h"

namespace qov::test {
namespace {

/// The first client has sent a hundred requests at once, and the first of them is being answered
/// when the second one comes.
TEST(StatusServer, AClientThatSendsManyRequestsAtOnceDoesNotDelayAnotherOne) {
  constexpr std::size_t kMany = 100;
  // A turn in which each of both is accepted, and some more for what the system tells late.
  constexpr std::ptrdiff_t kFew = 10;
  Latch begun;
  Latch goOn;
  std::vector<char> served;
  const ServedSocket socket([&](std::string_view request, const auto&...) {
    begun.count();
    EXPECT_TRUE(goOn.waitFor());
    served.push_back(request.front());
    return std::optional<std::string>("{}\n");
  });
  StatusClient many = socket.client();
  std::string requests;
  for (std::size_t i = 0; i < kMany; ++i) {
    requests += "m\n";
  }
  many.send(requests);
  ASSERT_TRUE(begun.waitFor());
  StatusClient one = socket.client();
  one.send("o\n");
  goOn.count();
  one.receive();
  for (std::size_t i = 0; i < kMany; ++i) {
    many.receive();
  }
  EXPECT_EQ(served.size(), kMany + 1);
  EXPECT_LT(std::find(served.begin(), served.end(), 'o') - served.begin(), kFew);
}

/// A server that the answer to "busy" keeps from all others: what comes meanwhile is there in one
/// turn.
class BusyServer : public ::testing::Test {
 protected:
  explicit BusyServer(std::chrono::seconds patience = std::chrono::hours(1))
      : socket_([this](std::string_view request, const status::ClientCounts&,
                       status::Kept& kept) { return answer(request, kept); },
                patience) {}

  std::optional<std::string> answer(std::string_view request, status::Kept& kept) {
    if (request == "hold") {
      kept = std::make_shared<int>();
      held_ = kept;
    } else if (request == "busy") {
      begun_.count();
      EXPECT_TRUE(goOn_.waitFor());
    } else if (request == "is it free") {
      isFree_ = held_.expired();
    }
    return "{}\n";
  }

  /// Whether what `holder` has held until its end is free for `asker`.
  bool isFreeFor(StatusClient asker, StatusClient holder) {
    serve(asker, "hello");
    serve(holder, "hold");
    const StatusClient busy = socket_.client();
    busy.send("busy\n");
    EXPECT_TRUE(begun_.waitFor());
    { const StatusClient gone = std::move(holder); }
    asker.send("is it free\n");
    goOn_.count();
    asker.receive();
    return isFree_;
  }

  static void serve(StatusClient& client, const std::string& request) {
    client.send(request + "\n");
    client.receive();
  }

  Latch begun_;
  Latch goOn_;
  status::Kept::weak_type held_;
  std::atomic<bool> isFree_{false};
  const ServedSocket socket_;
};

TEST_F(BusyServer, WhoHasGoneHoldsNothingForWhoWasThereBefore) {
  StatusClient first = socket_.client();
  EXPECT_TRUE(isFreeFor(std::move(first), socket_.client()));
}

TEST_F(BusyServer, WhoHasGoneHoldsNothingForWhoCameLater) {
  StatusClient first = socket_.client();
  EXPECT_TRUE(isFreeFor(socket_.client(), std::move(first)));
}

/// Its patience ends in the test, but not before a slow machine has come to the long answer.
class ImpatientBusyServer : public BusyServer {
 protected:
  ImpatientBusyServer() : BusyServer(kPatience) {}

  static constexpr std::chrono::seconds kPatience{10};
};

TEST_F(ImpatientBusyServer, DoesNotTakeWhatCameDuringALongAnswerForTooLate) {
  StatusClient other = socket_.client();
  serve(other, "hello");
  const StatusClient busy = socket_.client();
  busy.send("busy\n");
  ASSERT_TRUE(begun_.waitFor());
  const auto late = std::chrono::steady_clock::now() + kPatience;
  other.send("hello\n");
  ASSERT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() > late; }));
  goOn_.count();
  other.receive();
  EXPECT_EQ(socket_.counts().tooSlow, 0U);
}

}  // namespace
}  // namespace qov::test
