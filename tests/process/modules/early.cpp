// A module library with a static object that does what QOV_TEST_EARLY says.
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>

namespace {

constexpr int kOther = 5;

struct Early {
  Early() {
    const char* const text = std::getenv("QOV_TEST_EARLY");
    const std::string way = text != nullptr ? text : "";
    if (way == "abort") {
      std::abort();
    }
    if (way == "exit") {
      std::exit(0);
    }
    while (way == "hang") {
      ::pause();
    }
    if (way == "chatter") {
      constexpr std::size_t kMoreThanAPipe = 1 << 20;
      std::cout << std::string(kMoreThanAPipe, 'o') << std::flush;
      std::cerr << std::string(kMoreThanAPipe, 'e') << std::flush;
    }
    if (way == "name" &&
        (QOV_Utility::getProcessName() != "qov_test_agent" || QOV_Utility::getProcPID() != 7)) {
      std::_Exit(kOther);
    }
  }
};

const Early early;

}  // namespace

extern "C" void* QOV_CreateModule() {
  return nullptr;
}
