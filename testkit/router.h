#ifndef QOV_TESTKIT_ROUTER_H
#define QOV_TESTKIT_ROUTER_H

#include <ace/Message_Queue_T.h>
#include <ace/Synch_Traits.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_testkit.h>

#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace qov {

/// Stands in the place of a leader's queue: what is put in is kept at once, and a request gets its
/// answer while its sender has not begun to wait.
///
/// Thread: one.
/// Owns:   the packages that were sent. The leader is borrowed.
class TestRouter : public ACE_Message_Queue<ACE_MT_SYNCH> {
 public:
  /// Called with the time-out of a request that times out.
  using OnTimeout = std::function<void(QOVTestKit::Duration)>;

  TestRouter(CQOV_Leader_Task& leader, OnTimeout onTimeout);
  /// Gives the leader its own queue back.
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

 private:
  const Entry& entryFor(const QOVMsgHead& head) const;
  bool isOwnRequest(const QOVMsgHead& head) const;
  /// Ends the wait of `sender` for the answer to `request`.
  void serve(const TimeoutDesc& sender, const CQOV_MsgPackage& request, const Entry& entry);

  // Constant after construction.
  CQOV_Leader_Task& leader_;
  ACE_Message_Queue<ACE_MT_SYNCH>* const ownQueue_;
  const OnTimeout onTimeout_;

  std::map<std::pair<std::uint8_t, std::uint64_t>, Entry> table_;
  QOVTestKit::Sent sent_;
};

}  // namespace qov

#endif
