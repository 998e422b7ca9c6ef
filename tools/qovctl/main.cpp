#include <exception>
#include <new>

#include "modules/common/json_object.h"
#include "tools/common/standard_streams.h"
#include "tools/qovctl/command_line.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

/// Runs the command, and has printed what it printed before it says why it failed.
int runCommand(int argc, char** argv) try {
  try {
    CommandLine().run(argc, argv);
  } catch (...) {
    finishOutput();
    throw;
  }
  finishOutput();
  return kDone;
} catch (const Failure& failure) {
  complain(failure.what());
  return failure.code();
} catch (const common::BadJson& e) {
  complain(std::string("bad data: ") + e.what());
  return kBadData;
} catch (const std::bad_alloc&) {
  complain("not enough memory");
  return kFailed;
} catch (const std::exception& e) {
  complain(e.what());
  return kFailed;
}

}  // namespace
}  // namespace qov::ctl

int main(int argc, char** argv) {
  qov::tools::keepStandardStreams();
  return qov::ctl::runCommand(argc, argv);
}
