// Several clients at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "tests/modules/status/served_socket.h"
#include "tests/support/latch.h"

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

}  // namespace
}  // namespace qov::test
