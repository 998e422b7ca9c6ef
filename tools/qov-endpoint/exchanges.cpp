#include "tools/qov-endpoint/exchanges.h"

#include <cstring>
#include <memory>
#include <sstream>

#include "tools/qov-endpoint/fault_json.h"

namespace qov::endpoint {
namespace {

/// The head of an answer is the request's with another result and length.
TLVMsgHeadV3 headOf(const std::string& message) {
  TLVMsgHeadV3 head;
  std::memcpy(&head, message.data(), sizeof head);
  head.ret_ = kOk;
  head.len_ = 0;
  return head;
}

std::string encoded(CT7QPackageV3& package) {
  unsigned char* bytes = nullptr;
  const unsigned int size = package.encode(bytes);
  const std::unique_ptr<unsigned char[]> owner(bytes);
  return size == CT7QPackageV3::kFailed ? std::string()
                                        : std::string(reinterpret_cast<char*>(bytes), size);
}

bool answersWithRows(std::uint32_t operation) {
  return operation == kGetNext || operation == kGet;
}

bool isEnd(const CTLVRecordV3& record) {
  const CTLVCell* status = record.find(kStatusTag);
  return status != nullptr && status->type() == CTLVCell::TLV_ENUM && status->number() == kEnd;
}

Counts countsOf(const CT7QPackageV3& request, const CT7QPackageV3& answer, const Fault* fault) {
  Counts counts;
  counts.replies = 1;
  counts.refusals = answer.head().ret_ != kOk ? 1 : 0;
  if (request.count() != 0 && answersWithRows(operationOf(request[0].cmd())) &&
      (fault == nullptr || keepsRecords(fault->action))) {
    for (unsigned long i = 0; i < answer.count(); ++i) {
      ++(isEnd(answer[i]) ? counts.ends : counts.rows);
    }
  }
  return counts;
}

}  // namespace

Delivery Exchanges::accept(std::uint64_t connection) {
  ++counts_.change().connections;
  Delivery delivery;
  if (const Fault* fault = scenario_.take(connection, 0)) {
    log_.event("connection " + std::to_string(connection) + ": fault " + nameOf(fault->action));
    spoilDelivery(*fault, delivery);
  }
  return delivery;
}

Delivery Exchanges::exchange(const Origin& origin, std::string& message, Walks& walks) {
  ++counts_.change().requests;
  const Fault* fault = scenario_.take(origin.connection, origin.request);
  CT7QPackageV3 request;
  const bool decoded =
      request.decode(reinterpret_cast<unsigned char*>(message.data()),
                     static_cast<unsigned int>(message.size())) != CT7QPackageV3::kFailed;
  CT7QPackageV3 answer(headOf(message));
  const bool endless = fault != nullptr && fault->action == Action::kNoEnd;
  answers_.answer(request, decoded, endless, walks, answer);
  Delivery delivery = deliver(request, fault, answer);
  tell(origin, request, message.size(), answer, fault);
  return delivery;
}

Delivery Exchanges::deliver(const CT7QPackageV3& request, const Fault* fault,
                            CT7QPackageV3& answer) const {
  if (fault != nullptr) {
    spoilRecords(*fault, answer);
  }
  Delivery delivery;
  delivery.bytes = encoded(answer);
  delivery.counted = countsOf(request, answer, fault);
  if (fault != nullptr) {
    spoilDelivery(*fault, delivery);
  }
  return delivery;
}

void Exchanges::tell(const Origin& origin, const CT7QPackageV3& request, std::size_t bytes,
                     const CT7QPackageV3& answer, const Fault* fault) const {
  const bool noteworthy = fault != nullptr || answer.head().ret_ != kOk;
  if (!noteworthy && !log_.tellsExchanges()) {
    return;
  }
  std::ostringstream line;
  line << "connection " << origin.connection << " request " << origin.request << ": " << bytes
       << " bytes";
  if (request.count() != 0) {
    line << ", operation " << operationOf(request[0].cmd()) << " table "
         << tableOf(request[0].cmd());
  }
  line << "; result " << answer.head().ret_ << ", records " << answer.count();
  if (fault != nullptr) {
    line << ", fault " << nameOf(fault->action);
  }
  log_.event(line.str());
}

}  // namespace qov::endpoint
