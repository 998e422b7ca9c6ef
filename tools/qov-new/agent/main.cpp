// The agent is a frame; all it does lies in its modules.
#include <qovpub/qov_app.h>

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
  try {
    CQOVapp app;
    if (app.init(argc, argv) != 0) {
      std::cerr << argv[0] << ": cannot start; the lines above say why\n";
      return 1;
    }
    app.event_loop_done();  // returns after SIGINT or SIGTERM
    return 0;
  } catch (const std::exception& failure) {
    std::cerr << argv[0] << ": cannot start: " << failure.what() << '\n';
    return 1;
  }
}
