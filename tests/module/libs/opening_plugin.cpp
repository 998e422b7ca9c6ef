// A plug-in whose static object uses the test's outlet while the library is being opened.
#include "tests/module/libs/events.h"

extern "C" int qov_test_plugin_answer() {
  return 42;
}

namespace {

struct UsesTheOutlet {
  UsesTheOutlet() { qov::test::outlet()(); }
};

const UsesTheOutlet usesTheOutlet;

}  // namespace
