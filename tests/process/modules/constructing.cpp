// A library with a static object that calls the function that the test module gives it.
#include <dlfcn.h>

namespace {

struct Calls {
  Calls() {
    using Function = void (*)();
    const auto function =
        reinterpret_cast<Function>(::dlsym(RTLD_DEFAULT, "qov_test_while_constructing"));
    if (function != nullptr) {
      function();
    }
  }
};

const Calls calls;

}  // namespace
