#include "examples/collector/collection.h"

#include <utility>

#include "examples/common/messages.h"

namespace devagent {

std::uint64_t Collection::keep(std::unique_ptr<CQOV_MsgPackage> answer) {
  const std::lock_guard<std::mutex> hold(lock_);
  std::unique_ptr<CQOV_MsgPackage>& slot = answers_[answer->head().opc_];
  slot = std::move(answer);
  return slot->count();
}

std::uint64_t Collection::recordsOf(std::uint64_t operation) const {
  const std::lock_guard<std::mutex> hold(lock_);
  const auto found = answers_.find(operation);
  return found == answers_.end() ? 0 : found->second->count();
}

void Collection::appendHost(CQOV_MsgPackage& message) const {
  const std::lock_guard<std::mutex> hold(lock_);
  const auto found = answers_.find(kReadHost);
  CTLVRecordV3& record = message.addRecord(kHostRecord);
  if (found != answers_.end()) {
    record = (*found->second)[0];
  }
}

void Collection::publish(const Tally& tally) {
  const std::lock_guard<std::mutex> hold(lock_);
  tally_ = tally;
}

Tally Collection::tally() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return tally_;
}

}  // namespace devagent
