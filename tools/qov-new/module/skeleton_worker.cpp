#include "skeleton_worker.h"

#include <string>

#include "skeleton_module.h"

namespace skeleton_module {
namespace {

std::unique_ptr<CQOV_MsgPackage> greet(const CQOV_MsgPackage& request) {
  // What another module sends may be anything.
  const CTLVCell* const name = request.count() == 0 ? nullptr : request[0].find(kName);
  if (name == nullptr || name->type() != CTLVCell::TLV_STRING) {
    return CreateQovRspPackage(request, kNoName);
  }
  auto answer = CreateQovRspPackage(request);
  if (answer) {
    answer->addRecord(kGreet).addString(kText, "hello, " + std::string(name->getString()));
  }
  return answer;
}

}  // namespace

std::unique_ptr<CQOV_MsgPackage> answerTo(const CQOV_MsgPackage& request) {
  switch (request.head().opc_) {
    case kGreet:
      return greet(request);
    default:
      return CreateQovRspPackage(request, kUnknownOperation);
  }
}

int Worker::handleMessage(CQOV_MsgPackage& message) {
  if (message.head().type_ != kRequest) {
    return 0;  // nobody waits for an answer
  }
  return send(answerTo(message).release(), nullptr, true);
}

}  // namespace skeleton_module
