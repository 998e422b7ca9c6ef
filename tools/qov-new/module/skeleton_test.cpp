// What the module answers, without an agent around it.
#include <iostream>
#include <memory>

#include "skeleton_module.h"
#include "skeleton_worker.h"

namespace skeleton_module {
namespace {

int failures = 0;

void expect(bool isTrue, const char* sentence) {
  if (!isTrue) {
    std::cerr << "not true: " << sentence << '\n';
    ++failures;
  }
}

CQOV_MsgPackage requestFor(std::uint64_t operation) {
  CQOV_MsgPackage request;
  request.head().type_ = kRequest;
  request.head().opc_ = operation;
  return request;
}

void greetsByName() {
  CQOV_MsgPackage request = requestFor(kGreet);
  request.addRecord(kGreet).addString(kName, "Ada");
  const auto answer = answerTo(request);
  expect(answer->head().mst_ == 0, "a request with a name is answered");
  expect((*answer)[0].getString(kText) == "hello, Ada", "the answer has the name");
}

void refusesWhatHasNoName() {
  CQOV_MsgPackage request = requestFor(kGreet);
  expect(answerTo(request)->head().mst_ == kNoName, "a request without a record is refused");
  request.addRecord(kGreet).addUnsigned(kName, 5);
  expect(answerTo(request)->head().mst_ == kNoName, "a number is refused as a name");
}

void refusesOtherOperations() {
  const auto answer = answerTo(requestFor(kGreet + 1));
  expect(answer->head().mst_ == kUnknownOperation, "an unknown operation is refused");
}

}  // namespace
}  // namespace skeleton_module

int main() {
  skeleton_module::greetsByName();
  skeleton_module::refusesWhatHasNoName();
  skeleton_module::refusesOtherOperations();
  return skeleton_module::failures == 0 ? 0 : 1;
}
