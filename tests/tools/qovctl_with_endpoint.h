#ifndef QOV_TESTS_TOOLS_QOVCTL_WITH_ENDPOINT_H
#define QOV_TESTS_TOOLS_QOVCTL_WITH_ENDPOINT_H

#include <string>
#include <utility>
#include <vector>

#include "tests/tools/endpoint_process.h"
#include "tests/tools/qovctl_fixture.h"

namespace qov::test {

/// qovctl and the endpoint for development, as users have them.
class QovctlWithEndpoint : public QovctlTest {
 protected:
  void serves(std::vector<std::string> arguments = {}) {
    ASSERT_TRUE(endpoint_.start(std::move(arguments))) << endpoint_.errors();
  }
  /// The tables that JSON describes.
  void servesTables(const std::string& json) { serves({"--tables", file("served.json", json)}); }

  std::string address() const { return "127.0.0.1:" + std::to_string(endpoint_.port()); }
  QovctlRun ask(std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.push_back("--endpoint=" + address());
    return run(arguments, input);
  }

  EndpointProcess endpoint_;
};

}  // namespace qov::test

#endif
