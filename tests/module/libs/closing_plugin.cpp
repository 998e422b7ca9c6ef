// A plug-in whose static object uses the test's outlet while the library is being closed.
#include "tests/module/libs/events.h"

namespace {

struct UsesTheOutlet {
  ~UsesTheOutlet() { qov::test::outlet()(); }
};

const UsesTheOutlet usesTheOutlet;

}  // namespace
