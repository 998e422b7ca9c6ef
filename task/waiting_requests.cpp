#include "task/waiting_requests.h"

#include <ace/Time_Value.h>

#include <algorithm>

#include "task/age_list_copy.h"
#include "task/time_span.h"

namespace qov {

WaitingRequests::Entry::Entry(WaitingRequests& all, const QOVMsgHead& request,
                              const ACE_Time_Value& timeout, int thread)
    : all_(all), begin_(Clock::now()) {
  request_.thread_ = thread;
  request_.opc_ = request.opc_;
  request_.sn_ = request.sn_;
  request_.receiverProcess_ = request.rpid_;
  request_.receiver_ = request.rmid_;
  request_.timeout_ = nanosecondsOf(limitedSpan(timeout));
  const std::lock_guard<std::mutex> held(all_.mutex_);
  all_.entries_.add(*this);
}

WaitingRequests::Entry::~Entry() {
  const std::lock_guard<std::mutex> held(all_.mutex_);
  all_.entries_.remove(*this);
}

void WaitingRequests::list(unsigned int moduleId, std::vector<QOVWaitingRequest>& requests) const {
  const Entry::Clock::time_point now = Entry::Clock::now();
  copyAll(mutex_, entries_, requests, [&](const Entry& entry) {
    QOVWaitingRequest request = entry.request_;
    request.moduleId_ = moduleId;
    request.waiting_ = std::max(now - entry.begin_, Entry::Clock::duration::zero());
    return request;
  });
}

}  // namespace qov
