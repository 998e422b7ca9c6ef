#ifndef QOV_TESTKIT_ROUTER_H
#define QOV_TESTKIT_ROUTER_H

#include <ace/Message_Queue_T.h>
#include <ace/Synch_Traits.h>
#include <qovpub/detail/later_ptr.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_testkit.h>

#include <list>
#include <map>
#include <memory>
#include <utility>

namespace qov {

/// Stands in the place of a leader's queue: what is put in is kept at once, and a request gets its
/// answer while its sender has not begun to wait. Continuations of askLater() are kept until the
/// kit runs them.
///
/// Thread: one.
/// Owns:   the packages that were sent, and the continuations that have not run. Leader and clock
///         are borrowed.
class TestRouter : public ACE_Message_Queue<ACE_MT_SYNCH> {
 public:
  using Duration = QOVTestKit::Duration;

  /// Requests that time out move the clock `now`.
  TestRouter(CQOV_Leader_Task& leader, Duration& now);
  /// Gives the leader its own queue back. Continuations that have not run do not run.
  ~TestRouter() override;

  TestRouter(const TestRouter&) = delete;
  TestRouter& operator=(const TestRouter&) = delete;

  struct Entry {
    QOVReason reason = QOVReason::kNoReceiver;  ///< kNone: answered
    std::uint8_t result = 0;
    /// Shared with a call under way, which may change the table.
    std::shared_ptr<QOVTestKit::Fill> fill = nullptr;
  };
  void set(std::uint8_t module, std::uint64_t opc, Entry entry) {
    table_[{module, opc}] = std::move(entry);
  }

  QOVTestKit::Sent& sent() { return sent_; }

  /// 1, and `mb` is taken over; or -1 with errno, and `mb` stays with the caller.
  int enqueue_tail(ACE_Message_Block* mb, ACE_Time_Value* timeout = nullptr) override;

  /// Runs the continuation that is due first, `until` at the latest, and moves the clock there.
  /// False when there is none.
  bool runLater(Duration until);

  /// Takes no message any more, and runs the continuations that wait with kStopped.
  void stop();

 private:
  struct Later {
    Duration due;
    QOVAnswer answer;
    LaterPtr continuation = nullptr;
  };

  const Entry& entryFor(const QOVMsgHead& head) const;
  bool isOwnRequest(const QOVMsgHead& head) const;
  QOVAnswer answerTo(const CQOV_MsgPackage& request, const Entry& entry) const;
  /// Ends the wait of `sender` with `answer`, or keeps its continuation for it.
  void serve(const TimeoutDesc& sender, QOVAnswer answer);
  void endWait(const TimeoutDesc& sender, QOVAnswer answer);
  void run(Later later);

  // Constant after construction.
  CQOV_Leader_Task& leader_;
  ACE_Message_Queue<ACE_MT_SYNCH>* const ownQueue_;
  Duration& now_;

  /// Whose thread runs the continuations.
  CQOV_Task worker_;
  bool stopped_ = false;
  /// What is due first stands first.
  std::list<Later> later_;
  std::map<std::pair<std::uint8_t, std::uint64_t>, Entry> table_;
  QOVTestKit::Sent sent_;
};

}  // namespace qov

#endif
