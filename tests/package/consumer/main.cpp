// The smallest agent.
#include <qovpub/qov_app.h>
#include <qovpub/qov_exception.h>

#include <iostream>

int main(int argc, char** argv) {
  try {
    CQOVapp app;
    if (app.init(argc, argv) != 0) {
      std::cerr << "the agent does not start\n";
      return 1;
    }
    app.event_loop_done();
    return 0;
  } catch (const CQOV_Exception& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
  }
}
