// Sends requests and does nothing else, to be run below a tool that counts what they cost:
//
//   request_load <requesters> <requests>
//
// What start and stop cost goes away in the difference of two runs; `bench/table` shows how.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/requester.h"

int main(int argc, char** argv) {
  const int requesters = argc == 3 ? std::atoi(argv[1]) : 0;
  const int requests = argc == 3 ? std::atoi(argv[2]) : 0;
  if (requesters <= 0 || requests < requesters) {
    std::fprintf(stderr, "request_load <requesters> <requests>\n");
    return EXIT_FAILURE;
  }
  std::vector<Requester> all(static_cast<std::size_t>(requesters));
  secondsOfAll(CLOCK_MONOTONIC, all.size(), requests / requesters,
               [&all](std::size_t i) { all[i].request(); });
  return EXIT_SUCCESS;
}
