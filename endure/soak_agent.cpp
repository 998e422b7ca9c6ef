// The agent of the campaign "soak": traffic between its modules until there is a file "dry" in its
// root. Then the file "balance" tells what does not add up, nothing if all does. What must not be
// stands in the file "wrong" at once, and its process id in "state".
//   QOV_ENDURE_SEED  of what is random
#include <qovpub/qov_app.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "endure/traffic.h"

namespace {

using qov::endure::Traffic;

std::string fileNamed(const std::string& name) {
  return QOV_Utility::getQOVRootEnv() + "/" + name;
}

/// Readers never see half of it.
void writeWhole(const std::string& name, const std::string& text) {
  std::ofstream(fileNamed(name + "~")) << text;
  std::filesystem::rename(fileNamed(name + "~"), fileNamed(name));
}

void tellWrong(const std::string& what) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::ofstream(fileNamed("wrong"), std::ios::app) << what << '\n';
}

/// What does not add up when it should, after a while.
std::vector<std::string> settle(Traffic& traffic) {
  constexpr int kLooks = 600;
  std::vector<std::string> open;
  for (int look = 0; look < kLooks; ++look) {
    open = differences(traffic.counts(), getModuleStats());
    if (open.empty()) {
      return {};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return open;
}

void untilDry(Traffic& traffic) {
  while (!std::filesystem::exists(fileNamed("dry"))) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  traffic.dryUp();
  std::string balance;
  for (const std::string& difference : settle(traffic)) {
    balance += difference + '\n';
  }
  writeWhole("balance", balance);
}

int run(int argc, char** argv) {
  const char* const seed = std::getenv("QOV_ENDURE_SEED");
  qov::endure::Lateness lateness;
  Traffic traffic(std::strtoull(seed != nullptr ? seed : "1", nullptr, 10), lateness, tellWrong);
  CQOVapp app;
  if (app.init(argc, argv) != 0) {
    return 1;
  }
  traffic.feed();
  writeWhole("state", "pid " + std::to_string(::getpid()) + "\n");
  std::thread conductor([&traffic] { untilDry(traffic); });
  app.event_loop_done();
  conductor.join();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const CQOV_Exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
  }
}
