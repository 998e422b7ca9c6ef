#include "skeleton_worker.h"

#include <string>

#include "skeleton_module.h"

namespace skeleton_module {

Worker::Worker(CQOV_TaskMgr* module) : QOVHandlers(module, {{kGreet, &Worker::greet}}) {}

int Worker::greet(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
  // What another module sends may be anything.
  const CTLVCell* const name = request.count() == 0 ? nullptr : request[0].find(kName);
  if (name == nullptr || name->type() != CTLVCell::TLV_STRING) {
    return kNoName;
  }
  answer.addRecord(kGreet).addString(kText, "hello, " + std::string(name->getString()));
  return 0;
}

}  // namespace skeleton_module
