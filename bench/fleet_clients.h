#ifndef QOV_BENCH_FLEET_CLIENTS_H
#define QOV_BENCH_FLEET_CLIENTS_H

#include <qovpub/qov_task.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

/// Counts what happens on many threads, for one that waits for it.
class Progress {
 public:
  void add() {
    if (++count_ == wanted_) {
      const std::lock_guard lock(lock_);
      changed_.notify_one();
    }
  }
  std::uint64_t count() const { return count_; }
  /// Ends the program if it does not come that far within two minutes.
  void waitFor(std::uint64_t count);

 private:
  std::atomic<std::uint64_t> count_{0};
  std::atomic<std::uint64_t> wanted_{0};
  std::mutex lock_;
  std::condition_variable changed_;
};

/// What all clients of a fleet share.
struct Fleet {
  std::string name;  ///< the process in its topics
  int port = 0;
  Progress online;
  Progress acknowledged;  ///< events that the broker has
};

/// A client of the broker that sends events and answers requests.
class FleetClient {
 public:
  virtual ~FleetClient() = default;
  virtual void publish(const std::string& payload) = 0;
};

/// The module to which requests go.
constexpr int kAnsweringModule = 31;

/// An agent's part at the broker: what the module qovmqtt is made of.
/// With `outbox`, the path of a file, events go through it. With `sender` requests go to the
/// modules.
std::unique_ptr<FleetClient> makeAgent(Fleet& fleet, int node, const std::string& outbox,
                                       CQOV_Task* sender);

/// libmosquitto with its own thread, and as little around it as can be. With `polls` the thread is
/// ours: that library's waits with select(), which knows descriptors below 1024.
std::unique_ptr<FleetClient> makeBareClient(Fleet& fleet, int node, bool polls);

struct mosquitto;

/// Sends requests to clients of fleets, one at a time.
class Asker {
 public:
  explicit Asker(int port);
  ~Asker();
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  /// Seconds until the answer is there. Until the client has its subscription there is none, so a
  /// first question is asked again and again.
  double ask(const Fleet& fleet, int node, const std::string& payload);

 private:
  bool askOnce(const std::string& root, const std::string& payload);

  mosquitto* const client_;
  std::mutex lock_;
  std::condition_variable changed_;
  // Guarded by lock_.
  bool ready_ = false;
  std::uint64_t asked_ = 0;
  std::uint64_t answered_ = 0;  ///< the last question that has been
};

#endif
