// Two threads write one variable without a lock, on purpose: it must end with an error.
#include <thread>

namespace {
int shared = 0;
}

int main() {
  std::thread other([] { ++shared; });
  ++shared;
  other.join();
  return 0;
}
