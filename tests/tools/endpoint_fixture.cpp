#include "tests/tools/endpoint_fixture.h"

#include <sstream>

namespace qov::test {

std::string EndpointTest::counted() const {
  std::istringstream words(readFile(endpoint.path("counts")));
  std::string line;
  for (std::string word; words >> word;) {
    line += (line.empty() ? "" : " ") + word;
  }
  return line;
}

}  // namespace qov::test
