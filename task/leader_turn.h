#ifndef QOV_TASK_LEADER_TURN_H
#define QOV_TASK_LEADER_TURN_H

#include <ace/Reactor_Notification_Strategy.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>

#include "task/doorbell.h"

namespace qov {

/// What a leader lets a sender's thread do in its stead. Called by who has the turn.
class LeaderWork {
 public:
  /// Dispatches up to `most` messages that stand in the queue, and nothing else. Returns how many.
  /// If anything else stands there, it has the leader's own thread look.
  virtual std::size_t dispatchSome(std::size_t most) = 0;

  /// Has the leader's own thread look into the queue.
  virtual void wakeOwnThread() = 0;

 protected:
  ~LeaderWork() = default;
};

/// How far a leader is.
struct LeaderProgress {
  unsigned int steps;  ///< changes with each turn at its work, and with each message of a turn
  bool hasWork;        ///< somebody has the turn, or messages wait for who gets it next
};

/// Whose turn it is to do a leader's work: one thread at a time touches what the leader keeps, its
/// pending requests and timers. The leader's own thread takes the turn for whatever there is to do;
/// a sender takes it when nobody has it, to dispatch what it has put into the queue.
///
/// No message is left lying. It enters the queue before its sender asks for the turn. A sender that
/// finds it taken leaves a mark, and who gives the turn back looks for the mark: both change one
/// word, so the mark comes before that look or finds the turn free. Who finds the mark takes the
/// turn again, or has the leader's own thread look into the queue; and who looks and does not take
/// everything has that thread look, too.
///
/// The leader's own thread comes next where it waits, however many senders there are.
///
/// Shared: a sender may come to its work when the leader is gone. The leader lives until the turn
/// is closed, which needs the turn.
///
/// Thread: any; takeOwn() is for the leader's, and for who has joined it.
class LeaderTurn {
 public:
  /// `bell` wakes the leader's thread. Closed until open().
  LeaderTurn(LeaderWork& work, std::shared_ptr<Doorbell> bell);

  void open();

  /// Takes the turn for the leader's own thread, waiting for a sender that has it.
  void takeOwn();

  /// Frees the turn, for who has it.
  void giveBack();

  /// Nobody gets the turn any more. For who has it.
  void close();

  /// Takes the turn and dispatches what stands in the queue then, and again where it finds a mark,
  /// up to `most` messages in all; returns how many. Leaves a mark instead if the turn is taken, or
  /// the own thread waits for it.
  std::size_t workHere(std::size_t most);

  /// Leaves it to the leader's own thread.
  void leaveToOwnThread();

  /// For who has the turn: it begins with the next message.
  void step();

  /// Thread: any, for who watches the leader, and knows whether messages wait for it.
  LeaderProgress progress(bool messagesWait) const;

  /// Whether the calling thread has the turn.
  bool isMine();

  /// Whether the calling thread does some leader's work.
  static bool anyIsMine();

 private:
  // What state_ is made of.
  static constexpr unsigned int kClosed = 1;
  static constexpr unsigned int kTaken = 2;
  static constexpr unsigned int kMarked = 4;
  static constexpr unsigned int kOwnThreadWaits = 8;

  /// Makes `next` of the state out of the state, in one step. Returns the state before.
  template <class Next>
  unsigned int change(Next next);

  /// False, and a mark left, when somebody else has the turn or comes next, or it is closed.
  bool tryTake();
  void hold();

  LeaderWork& work_;
  const std::shared_ptr<Doorbell> bell_;

  std::atomic<unsigned int> state_{kClosed};
  /// Nobody's while the turn is free. Each thread looks for its own id only, which nobody else
  /// writes.
  std::atomic<pthread_t> holder_{};
  /// Written by who has the turn.
  std::atomic<unsigned int> steps_{0};
};

/// The turn in the hands of the leader's own thread, which may be cancelled or ended meanwhile.
class OwnTurn {
 public:
  explicit OwnTurn(LeaderTurn& turn) : turn_(turn) { turn_.takeOwn(); }
  ~OwnTurn() { turn_.giveBack(); }

  OwnTurn(const OwnTurn&) = delete;
  OwnTurn& operator=(const OwnTurn&) = delete;

 private:
  LeaderTurn& turn_;
};

/// While one lives, the leaders whose queues its thread fills are not woken. At its end the thread
/// does their work itself, one after the other, and rings those that it has made work for.
///
/// Within another one it does nothing.
class LeadingScope {
 public:
  /// Does nothing unless `active`.
  explicit LeadingScope(bool active);
  ~LeadingScope();

  LeadingScope(const LeadingScope&) = delete;
  LeadingScope& operator=(const LeadingScope&) = delete;

  /// Puts off the work of `turn` to the end of the calling thread's scope. False without a scope.
  static bool defer(const std::shared_ptr<LeaderTurn>& turn);

  /// Leaves what the calling thread has put off to the leaders' own threads: it is about to wait,
  /// in something that a module overrides and a leader calls.
  static void leaveRest();

 private:
  /// Two for a message: the sender's leader, and the one that it passes the message on to. Copies
  /// and what else these have to pass on take the rest; the leader that finds no place is woken.
  static constexpr std::size_t kMostLeaders = 4;
  /// How many messages a sender dispatches before it goes on with its own affairs.
  static constexpr std::size_t kMostMessages = 64;

  bool add(const std::shared_ptr<LeaderTurn>& turn);

  const RingCollector rings_;
  const bool active_;
  std::array<std::shared_ptr<LeaderTurn>, kMostLeaders> turns_;
  std::size_t count_ = 0;
  std::size_t begun_ = 0;
};

/// For a thread that is about to wait for anything: rings what it has collected, and leaves what it
/// has put off to others.
void beforeWaiting();

/// Tells whoever will do the leader's work that there is some: the calling thread, in its scope, or
/// else the leader's own.
class LeaderNotification final : public ACE_Reactor_Notification_Strategy {
 public:
  LeaderNotification(ACE_Reactor& reactor, ACE_Event_Handler& leader,
                     std::shared_ptr<LeaderTurn> turn);

  int notify() override;

 private:
  const std::shared_ptr<LeaderTurn> turn_;
};

}  // namespace qov

#endif
