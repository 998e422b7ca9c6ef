#ifndef QOV_TASK_MESSAGE_TRACE_H
#define QOV_TASK_MESSAGE_TRACE_H

#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_msg_head.h>
#include <qovpub/qov_stats.h>
#include <qovpub/qov_trace.h>

#include <atomic>
#include <cstdint>

#include "diag/probe.h"
#include "task/message_block.h"

namespace qov {

/// What a step tells of its message. All 0 where that is not known any more.
struct TracedMessage {
  TracedMessage() = default;
  TracedMessage(const QOVMsgHead& head)
      : opc_(head.opc_), sn_(head.sn_), type_(head.type_), smid_(head.smid_), rmid_(head.rmid_) {}
  explicit TracedMessage(const MsgKey& request)
      : opc_(request.opc_),
        sn_(request.sn_),
        type_(QOVMsgHead::kRequest),
        smid_(request.smid_),
        rmid_(request.rmid_) {}

  std::uint64_t opc_ = 0;
  std::uint32_t sn_ = 0;
  std::uint8_t type_ = 0;
  std::uint8_t smid_ = 0;
  std::uint8_t rmid_ = 0;
};

/// What `mb` carries, if it is a package.
inline TracedMessage tracedIn(const ACE_Message_Block& mb) {
  const CQOV_MsgPackage* const pkg = packageOf(mb);
  return pkg != nullptr ? TracedMessage(pkg->head()) : TracedMessage();
}

/// Whether the trace is on.
inline std::atomic<bool> traceIsOn{false};

/// Makes an event of the trace.
void trace(QOVTraceEvent::Step step, unsigned int module, const TracedMessage& message,
           QOVDropReason reason = QOVDropReason::kNoReceiver) noexcept;

// One function for each step of a message: a probe, and an event while the trace is on. `module` is
// where the step is.
//
// Inlined, those of each message: the compiler takes a probe for long, and a call would cost more.

#define QOV_MESSAGE_PROBE(name, module, message)                                            \
  QOV_PROBE6(name, module, (message).opc_, (message).sn_, (message).type_, (message).smid_, \
             (message).rmid_)

inline void noteStep(QOVTraceEvent::Step step, unsigned int module, const QOVMsgHead& head) {
  if (traceIsOn.load(std::memory_order_relaxed)) {
    trace(step, module, head);
  }
}

[[gnu::always_inline]] inline void noteSend(unsigned int module, const QOVMsgHead& head) {
  QOV_MESSAGE_PROBE(send, module, head);
  noteStep(QOVTraceEvent::Step::kSend, module, head);
}

[[gnu::always_inline]] inline void noteDispatch(unsigned int module, const QOVMsgHead& head) {
  QOV_MESSAGE_PROBE(dispatch, module, head);
  noteStep(QOVTraceEvent::Step::kDispatch, module, head);
}

[[gnu::always_inline]] inline void noteHandleBegin(unsigned int module, const QOVMsgHead& head) {
  QOV_MESSAGE_PROBE(handle_begin, module, head);
  noteStep(QOVTraceEvent::Step::kHandleBegin, module, head);
}

[[gnu::always_inline]] inline void noteHandleEnd(unsigned int module, const QOVMsgHead& head) {
  QOV_MESSAGE_PROBE(handle_end, module, head);
  noteStep(QOVTraceEvent::Step::kHandleEnd, module, head);
}

[[gnu::always_inline]] inline void noteAnswer(unsigned int module, const QOVMsgHead& response) {
  QOV_MESSAGE_PROBE(answer, module, response);
  noteStep(QOVTraceEvent::Step::kAnswer, module, response);
}

inline void noteTimeOut(unsigned int module, const TracedMessage& request) {
  QOV_MESSAGE_PROBE(time_out, module, request);
  if (traceIsOn.load(std::memory_order_relaxed)) {
    trace(QOVTraceEvent::Step::kTimeOut, module, request);
  }
}

inline void noteDrop(unsigned int module, const TracedMessage& message, QOVDropReason reason) {
  QOV_PROBE7(drop, module, message.opc_, message.sn_, message.type_, message.smid_, message.rmid_,
             static_cast<int>(reason));
  if (traceIsOn.load(std::memory_order_relaxed)) {
    trace(QOVTraceEvent::Step::kDrop, module, message, reason);
  }
}

#undef QOV_MESSAGE_PROBE

}  // namespace qov

#endif
