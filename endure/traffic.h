#ifndef QOV_ENDURE_TRAFFIC_H
#define QOV_ENDURE_TRAFFIC_H

#include <qovpub/qov_task_mgr.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "endure/lateness.h"
#include "endure/traffic_counts.h"

namespace qov::endure {

/// The traffic of one life of the modules: everything that they send each other, at random, from
/// the moment they are loaded until dryUp().
///
///   from                 what
///   threads of no task   notices, one by one and more at once than a module has room for
///   static tasks         each tick: notices, requests with a continuation, waits for its own pool
///   workers              whatever a notice asks for: requests that they wait for, by QOVRequest
///                        and by CQOV_Task::send(), requests with a continuation, notices
///   continuations        notices
///
/// Thread: the main thread's; the modules' tasks use of(), flows(), serial() and wrong().
class Traffic {
 public:
  /// Modules that are loaded from now on, until the next one is made, take part in this one.
  /// What is random comes from `seed`. `wrong` is called, by any thread, with what must not be.
  Traffic(std::uint64_t seed, LatenessOfAll& lateness,
          std::function<void(const std::string&)> wrong);
  ~Traffic();

  Traffic(const Traffic&) = delete;
  Traffic& operator=(const Traffic&) = delete;

  /// From now on static tasks send events to the MQTT module, too.
  void sendEvents() { sendsEvents_ = true; }
  bool sendsEvents() const { return sendsEvents_; }
  /// Starts the threads of no task, also again behind dryUp(). The modules are loaded.
  void feed();
  /// Nobody sends anything new; returns when the threads have ended.
  void dryUp();
  bool flows() const { return flows_; }

  const CountsOfAll& counts() const { return counts_; }
  TrafficCounts& of(std::uint8_t module) { return counts_[placeOf(module)]; }
  LatenessOfAll& lateness() const { return lateness_; }

  std::uint64_t serial() { return ++lastSerial_; }
  /// A handler has got the message with that serial: wrong if it is one that a handler has had.
  void handled(std::uint64_t serial);
  /// Of what is random in the part of that number of a module.
  std::uint64_t seedOf(std::uint8_t module, unsigned int part) const;
  unsigned int poolSizeOf(std::uint8_t module) const { return poolSizes_[placeOf(module)]; }
  /// A module's manager says that it is there.
  void join(CQOV_TaskMgr& module) { modules_.push_back(&module); }

  /// Something that must not be.
  void wrong(const std::string& what) const { wrong_(what); }

  static Traffic& current();

 private:
  const std::uint64_t seed_;
  LatenessOfAll& lateness_;
  const std::function<void(const std::string&)> wrong_;
  std::array<unsigned int, kTrafficModules> poolSizes_{};
  CountsOfAll counts_;
  std::atomic<bool> flows_{true};
  std::vector<CQOV_TaskMgr*> modules_;
  std::vector<std::thread> feeders_;
  std::atomic<bool> sendsEvents_{false};
  static std::atomic<std::uint64_t> lastSerial_;
  /// What handlers have got of late, each in the place of its serial: far more than can wait.
  static std::array<std::atomic<std::uint64_t>, 1U << 15U> handled_;
};

/// What the entry functions of the module libraries return.
CQOV_TaskMgr* makeTrafficModule(std::uint8_t id);

}  // namespace qov::endure

#endif
