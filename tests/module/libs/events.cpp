#include "tests/module/libs/events.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace qov::test {
namespace {

constexpr std::chrono::seconds kLimit{60};

struct Events {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> all;
  bool gateOpen = false;
  bool initialised = false;
  std::function<void()> outlet = [] {};
};

Events& state() {
  // Never destroyed: module threads may end with the process.
  static Events& events = *new Events;
  return events;
}

}  // namespace

void recordEvent(const std::string& event) {
  const std::lock_guard<std::mutex> lock(state().mutex);
  state().all.push_back(event);
  state().changed.notify_all();
}

std::vector<std::string> events() {
  const std::lock_guard<std::mutex> lock(state().mutex);
  return state().all;
}

bool waitForEvent(const std::string& event, int count, std::chrono::milliseconds limit) {
  std::unique_lock<std::mutex> lock(state().mutex);
  return state().changed.wait_for(lock, limit, [&] {
    return std::count(state().all.begin(), state().all.end(), event) >= count;
  });
}

int countEvent(const std::string& event) {
  const std::lock_guard<std::mutex> lock(state().mutex);
  return static_cast<int>(std::count(state().all.begin(), state().all.end(), event));
}

void setOutlet(std::function<void()> outlet) {
  const std::lock_guard<std::mutex> lock(state().mutex);
  state().outlet = std::move(outlet);
}

std::function<void()> outlet() {
  const std::lock_guard<std::mutex> lock(state().mutex);
  return state().outlet;
}

void resetEvents() {
  const std::lock_guard<std::mutex> lock(state().mutex);
  state().all.clear();
  state().gateOpen = false;
  state().initialised = false;
}

bool firstToInitialise() {
  const std::lock_guard<std::mutex> lock(state().mutex);
  return !std::exchange(state().initialised, true);
}

void openGate() {
  const std::lock_guard<std::mutex> lock(state().mutex);
  state().gateOpen = true;
  state().changed.notify_all();
}

void waitAtGate() {
  std::unique_lock<std::mutex> lock(state().mutex);
  state().changed.wait_for(lock, kLimit, [] { return state().gateOpen; });
}

}  // namespace qov::test
