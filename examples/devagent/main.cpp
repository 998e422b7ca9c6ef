// The example agent's executable: what it does lies in its modules.
#include <qovpub/qov_app.h>

#include <exception>
#include <iostream>

namespace {

/// False when the agent cannot start; standard error says why.
bool start(CQOVapp& app, int argc, char** argv) try {
  if (app.init(argc, argv) == 0) {
    return true;
  }
  std::cerr << argv[0] << ": cannot start; the log says why\n";
  return false;
} catch (const std::exception& failure) {
  std::cerr << argv[0] << ": cannot start: " << failure.what() << '\n';
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  CQOVapp app;
  if (!start(app, argc, argv)) {
    return 1;
  }
  // What a module throws from here on ends the process with a line of its own.
  app.event_loop_done();
  return 0;
}
