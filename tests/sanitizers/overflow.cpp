// Overflows an int on purpose: the undefined-behaviour checks must end it with an error.
#include <limits>

int main(int argc, char**) {
  volatile int largest = std::numeric_limits<int>::max();
  largest = largest + argc;
  return 0;
}
