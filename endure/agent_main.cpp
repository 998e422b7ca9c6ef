// The frame of an agent, for campaigns that start one.
#include <qovpub/qov_app.h>
#include <qovpub/qov_exception.h>

#include <iostream>

int main(int argc, char** argv) try {
  CQOVapp app;
  if (app.init(argc, argv) != 0) {
    return 1;
  }
  app.event_loop_done();
  return 0;
} catch (const CQOV_Exception& e) {
  std::cerr << e.what() << '\n';
  return 1;
}
