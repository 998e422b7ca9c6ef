#include "link/endpoint_address.h"

#include <gtest/gtest.h>

namespace qov::test {
namespace {

struct Written {
  const char* text;
  const char* host;
  unsigned short port;
};

TEST(HostPort, IsWhatTheTextSays) {
  for (const auto& [text, host, port] : {Written{"127.0.0.1:1", "127.0.0.1", 1},
                                         {"localhost:65535", "localhost", 65535},
                                         {"[::1]:19001", "::1", 19001},
                                         {"::1:19001", "::1", 19001},
                                         {"19001", "", 19001}}) {
    const auto found = hostPortOf(text);
    ASSERT_TRUE(found.has_value()) << text;
    EXPECT_EQ(found->host, host) << text;
    EXPECT_EQ(found->port, port) << text;
  }
}

TEST(HostPort, IsNoneOfAnyOtherText) {
  for (const char* text : {"", ":", ":19001", "host:", "host:0", "host:65536", "host:-1", "host:1x",
                           "[]:1", "[", "[::1]", "[::1]:", "[::1]19001", "[::1]:1:1", "host"}) {
    EXPECT_FALSE(hostPortOf(text).has_value()) << text;
  }
}

TEST(Addresses, OfAHostInNumbersAreTheHostItself) {
  std::string cause;
  const auto found = addressesOf({"127.0.0.2", 19001}, cause);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(wholeTextOf(found[0]), "127.0.0.2:19001");
  EXPECT_EQ(cause, "");
}

TEST(AddressText, IsNumericAndOf32CharactersAtMost) {
  EXPECT_STREQ(textOf(ACE_INET_Addr(65535, "255.255.255.255")).data(), "255.255.255.255:65535");
  const ACE_INET_Addr longest("[2001:db8:1111:2222:3333:4444:5555:6666]:65535", AF_INET6);
  EXPECT_STREQ(textOf(longest).data(), "[2001:db8:1111:2222:3333:4444:55");
}

}  // namespace
}  // namespace qov::test
