#ifndef QOV_ENDURE_FAULT_PROXY_H
#define QOV_ENDURE_FAULT_PROXY_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "endure/handle.h"
#include "endure/link_fault.h"

namespace qov::endure {

/// Stands between one link and a management endpoint, and does harm to what passes.
///
/// Thread: plan(), waitUntilAway() and comeBack() from the one that uses the link, between its
///         exchanges; it has a thread of its own.
/// Owns:   a port, which nobody else gets while the object lives, and both connections.
/// Errors: std::runtime_error out of the constructor and out of waitUntilAway(); failure() has what
///         the thread has met.
class FaultProxy {
 public:
  struct Plan {
    Fault fault = Fault::kNone;
    int times = 1;           ///< for so many attempts, or connections
    std::uint64_t draw = 0;  ///< where, how much and which bytes
    std::function<void()> interrupt;
    std::uint64_t after = 0;  ///< so many requests are answered before
  };

  explicit FaultProxy(std::uint16_t endpoint);
  ~FaultProxy();
  FaultProxy(const FaultProxy&) = delete;
  FaultProxy& operator=(const FaultProxy&) = delete;

  std::uint16_t port() const { return port_; }

  /// From the next request on, in place of any plan so far.
  void plan(Plan next);
  /// With kRefuse or kQuiet planned: until nobody can connect any more.
  void waitUntilAway();
  bool isAway() const;
  /// Lets the link connect again; returns when it can.
  void comeBack();

  /// When the link was last sent a whole answer that it still waited for.
  std::chrono::steady_clock::time_point answered() const { return answered_; }
  /// How many bytes the link was sent on the connection that it has.
  std::size_t sent() const { return sent_; }
  /// Empty unless the endpoint has failed.
  std::string failure() const;

 private:
  using Message = std::vector<unsigned char>;
  enum class Presence { kThere, kAway, kReturning, kEnding };

  void run();
  bool accept();
  void serve();
  bool exchange(const Plan& plan);
  bool failBeforeAsking(const Plan& plan, Message& request);
  bool answer(const Message& answer, const Plan& plan);
  bool answerInPart(const Message& answer, const Plan& plan);
  bool beAway(Fault fault);
  void noteAnswer();
  void setPresence(Presence presence);
  Message ask(const Message& request, const Plan& plan);
  Message answerOfEndpoint();

  void connectToEndpoint();
  Handle listen(int backlog) const;
  bool hasRequest() const;
  void waitForEnd() const;
  bool wait(int descriptor, short events, int milliseconds) const;
  bool receive(int from, unsigned char* to, std::size_t length) const;
  bool receiveMessage(int from, Message& message) const;
  bool send(const Message& bytes, std::size_t begin, std::size_t end);
  bool sendInPieces(const Message& bytes, std::size_t longest, int pause);
  void resetAtClose() const;
  Plan takeForRequest();
  Plan takeForConnection();

  std::uint16_t port_ = 0;
  const std::uint16_t endpoint_port_;
  const Handle holder_;  ///< keeps the port while nobody listens
  const Handle stop_;    ///< readable when the thread is to end

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Plan plan_;         ///< guarded by mutex_, with the next four
  int requests_ = 0;  ///< how many the plan is still for
  int accepts_ = 0;   ///< the same of connections
  Presence presence_ = Presence::kThere;
  std::string failure_;

  std::atomic<std::size_t> sent_{0};
  std::atomic<std::chrono::steady_clock::time_point> answered_{};

  // The thread's.
  Handle listener_;
  Handle link_;
  Handle endpoint_;
  Message former_;  ///< answer

  std::thread thread_;
};

}  // namespace qov::endure

#endif
