#ifndef QOV_TESTS_TOOLS_ENDPOINT_FIXTURE_H
#define QOV_TESTS_TOOLS_ENDPOINT_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/tools/endpoint_client.h"
#include "tests/tools/endpoint_process.h"

namespace qov::test {

/// An endpoint with fixed tables: 7 has the rows 2 and 300, 8 has none, and requests can store to
/// 4096, which has row 10, and above.
class EndpointTest : public ::testing::Test {
 protected:
  static constexpr std::uint32_t kThings = 7;
  static constexpr std::uint32_t kNothing = 8;
  static constexpr std::uint32_t kKept = 0x1000;

  static constexpr const char* kTables = R"({"tables":[
    {"name":"things","number":7,"rows":[
      {"key":300,"cells":[{"tag":1,"type":"String","value":"last"}]},
      {"key":2,"cells":[{"tag":1,"type":"String","value":"first"},
                        {"tag":2,"type":"Uint","value":77}]}]},
    {"name":"nothing","number":8,"rows":[]},
    {"name":"kept","number":4096,"rows":[
      {"key":10,"cells":[{"tag":3,"type":"Int","value":-2}]}]}]})";

  /// Two signals, since answers may be on their way for hours.
  void TearDown() override {
    if (endpoint.pid() > 0) {
      endpoint.send(SIGTERM);
      EXPECT_EQ(endpoint.end(SIGINT).exitStatus, 0) << endpoint.errors();
    }
  }

  /// Starts the endpoint with these arguments besides.
  void starts(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.end(), {"--tables", endpoint.file("tables.json", kTables),
                                       "--counts", endpoint.path("counts")});
    ASSERT_TRUE(endpoint.start(std::move(arguments))) << endpoint.errors();
  }

  EndpointClient client() const {
    EndpointClient connected(endpoint.port());
    EXPECT_TRUE(connected.connected());
    return connected;
  }

  /// The endpoint finds all that `act` does at once.
  template <class Act>
  void whileItIsStopped(Act act) const {
    siginfo_t stopped = {};
    endpoint.send(SIGSTOP);
    EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(endpoint.pid()), &stopped, WSTOPPED), 0);
    act();
    endpoint.send(SIGCONT);
  }

  EndpointClient clientOfStarted(std::vector<std::string> arguments = {}) {
    starts(std::move(arguments));
    return client();
  }

  // The rows of table 7 as they stand in answers.
  static std::string firstRow() {
    return record(kGetNextOf + kThings, text(1, "first") + number(2, 77) + cursor(2) + status(0));
  }
  static std::string lastRow() {
    return record(kGetNextOf + kThings, text(1, "last") + cursor(300, 2) + status(0));
  }
  static std::string endOf(std::uint32_t table) { return record(kGetNextOf + table, status(1)); }
  /// Asks for the first row of table 7, which every fault can spoil.
  static std::string request(std::uint16_t serial) {
    return message(serial, record(kGetNextOf + kThings));
  }
  static std::string answer(std::uint16_t serial) { return message(serial, firstRow()); }

  /// What the counts file says, as "connections 1 requests 2 ...".
  std::string counted() const;

  EndpointProcess endpoint;
};

}  // namespace qov::test

#endif
