// The agent of the campaign "soak": traffic between its modules while there is no file "dry" in its
// root. When there is, and all has ended, the file "balance" tells what does not add up, nothing if
// all does, and "state" has figures. What must not be stands in the file "wrong" at once.
//   QOV_ENDURE_SEED      of what is random
//   QOV_ENDURE_CAMPAIGN  the process without which it ends
#include <qovpub/qov_app.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_long_socket.h>
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "endure/own_process.h"
#include "endure/traffic.h"
#include "tools/common/endpoint_protocol.h"

namespace {

using qov::endure::Traffic;

std::string fileNamed(const std::string& name) {
  return QOV_Utility::getQOVRootEnv() + "/" + name;
}

/// Exchanges and saves so far.
std::atomic<int> turns{0};

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "1";
}

bool hasModule(unsigned int id) {
  const std::vector<QOVModuleStats> all = getModuleStats();
  return std::any_of(all.begin(), all.end(),
                     [id](const QOVModuleStats& each) { return each.moduleId_ == id; });
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

template <class Condition>
void waitUntil(const Condition& condition) {
  static const auto campaign = static_cast<pid_t>(std::stol(environment("QOV_ENDURE_CAMPAIGN")));
  while (!condition()) {
    if (::kill(campaign, 0) != 0) {
      std::_Exit(1);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void writeState(const Traffic& traffic) {
  using qov::endure::TrafficCounts;
  const qov::endure::OwnMemory memory = qov::endure::ownMemory();
  std::ostringstream text;
  text << "pid " << ::getpid() << "\nresident " << memory.resident_ << "\nheap " << memory.heap_
       << "\nevents " << sumOf(&TrafficCounts::events_, traffic.counts()) << "\nserials "
       << sumOf(&TrafficCounts::eventSerials_, traffic.counts()) << "\nturns " << turns << '\n';
  writeWhole("state", text.str());
}

/// What an agent does beside its messages: it exchanges some with the management endpoint and saves
/// a file, and both succeed.
void workBeside(const Traffic& traffic) {
  CQOVLongSocket link;
  const std::string file = fileNamed("saved.ini");
  std::ofstream(file) << "[SOAK]\n";
  for (int turn = 0; traffic.flows(); ++turn) {
    CT7QPackageV3 message;
    message.addRecord(qov::endpoint::command(qov::endpoint::kGetNext, qov::endpoint::kInterfaces));
    if (link.sendMsg(&message) != 0) {
      tellWrong("an exchange with the management endpoint fails");
    }
    CQOV_Ini_Operator saver;
    CQOV_Ini_Operator reader;
    std::string value;
    if (saver.open(file.c_str()) != 0 ||
        saver.setConfigItem("SOAK", "turn", std::to_string(turn)) != 0 ||
        reader.open(file.c_str()) != 0 || reader.getConfigItem("SOAK", "turn", value) != 0 ||
        value != std::to_string(turn)) {
      tellWrong("turn " + std::to_string(turn) + " was not saved");
    }
    ++turns;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

/// Until the frame stops, which is at rest.
void conduct(Traffic& traffic, const std::atomic<bool>& hasStopped) {
  const auto isDry = [] { return std::filesystem::exists(fileNamed("dry")); };
  while (!hasStopped) {
    traffic.feed();
    std::thread beside([&traffic] { workBeside(traffic); });
    waitUntil(isDry);
    traffic.dryUp();
    beside.join();
    std::string balance;
    for (const std::string& difference : settle(traffic.counts())) {
      balance += difference + '\n';
    }
    writeState(traffic);
    writeWhole("balance", balance);
    waitUntil([&] { return hasStopped || !isDry(); });
  }
}

}  // namespace

int main(int argc, char** argv) try {
  qov::endure::LatenessOfAll lateness;
  Traffic traffic(std::stoull(environment("QOV_ENDURE_SEED")), lateness, tellWrong);
  CQOVapp app;
  if (app.init(argc, argv) != 0) {
    return 1;
  }
  if (hasModule(qov::endure::kMqttModule)) {
    traffic.sendEvents();
  }
  writeState(traffic);
  std::atomic<bool> hasStopped{false};
  std::thread conductor([&] { conduct(traffic, hasStopped); });
  app.event_loop_done();
  hasStopped = true;
  conductor.join();
  return 0;
} catch (const CQOV_Exception& e) {
  std::cerr << e.what() << '\n';
  return 1;
}
