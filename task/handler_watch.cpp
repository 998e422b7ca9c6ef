#include "task/handler_watch.h"

#include <ace/Time_Value.h>
#include <qovpub/qov_common_debugkit.h>

#include <algorithm>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "diag/log_ids.h"
#include "task/pending_requests.h"

namespace qov {

namespace {

constexpr long kNoTimer = -1;

using Clock = RunningHandlers::Clock;

unsigned long long millisecondsOf(Clock::duration span) {
  return static_cast<unsigned long long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(span).count());
}

}  // namespace

HandlerWatch::HandlerWatch(unsigned int moduleId, ACE_Reactor& reactor, RunningHandlers& handlers,
                           const PendingRequests& pending)
    : moduleId_(moduleId), reactor_(reactor), handlers_(handlers), pending_(pending) {}

HandlerWatch::~HandlerWatch() {
  stop();
}

void HandlerWatch::follow() {
  if (handlers_.hasChanged()) {
    stop();
    look();
  }
}

void HandlerWatch::stop() {
  if (const long timer = std::exchange(timerId_, kNoTimer); timer != kNoTimer) {
    reactor_.cancel_timer(timer);
  }
}

int HandlerWatch::handle_timeout(const ACE_Time_Value&, const void*) {
  timerId_ = kNoTimer;
  look();
  return 0;
}

void HandlerWatch::look() {
  const Clock::time_point now = Clock::now();
  while (const auto late = handlers_.takeLate(now)) {
    tell(*late, now);
  }
  const auto next = handlers_.hasLimit() ? handlers_.nextLate() : std::nullopt;
  if (next) {
    // Behind the end of the limit: a handler that is just at it does not outlast it yet.
    const auto left =
        std::chrono::floor<std::chrono::milliseconds>(*next - now) + std::chrono::milliseconds(1);
    timerId_ = reactor_.schedule_timer(this, nullptr, ACE_Time_Value(left));
    if (timerId_ == kNoTimer) {
      throw std::bad_alloc();
    }
  }
}

void HandlerWatch::tell(const RunningHandler& handler, Clock::time_point now) const {
  CQOVDebugKitGuard log(kPublicKit,
                        "void qov::HandlerWatch::tell(const qov::RunningHandler&, "
                        "qov::RunningHandlers::Clock::time_point) const");
  std::string wait = "none of its requests is pending";
  if (const auto pending = pending_.waitOf(*handler.task_)) {
    const MsgKey& request = pending->key;
    std::ostringstream text;
    // By a clock that is a few milliseconds late: not earlier than the handler itself.
    const Clock::time_point since = std::max(pending->since, handler.begin_);
    text << "its request has been pending for " << millisecondsOf(now - since)
         << " ms: RPID=" << +request.rpid_ << ",RMID=" << +request.rmid_ << ",OPC=" << request.opc_
         << ",SN=0x" << std::hex << request.sn_;
    wait = text.str();
  }
  const QOVMsgHead& head = handler.message_;
  log.warn(log_id::kHandlerLate, __FUNCTION__, __LINE__,
           "Module(%u) a handler has run for %llu ms, longer than its limit of %llu ms: "
           "SPID=%u,SMID=%u,OPC=%llu,SN=0x%x,TP=%u; %s",
           moduleId_, millisecondsOf(now - handler.begin_), millisecondsOf(handlers_.limit()),
           head.spid_, head.smid_, static_cast<unsigned long long>(head.opc_), head.sn_, head.type_,
           wait.c_str());
}

}  // namespace qov
