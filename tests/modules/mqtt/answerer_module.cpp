// A module, id 41, for requests from the broker.
//   1  answers with the records of the request
//   2  never answers
//   3  answers with result 5
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_module.h>
#include <qovpub/qov_task_mgr.h>

namespace {

constexpr int kId = 41;

class Worker : public QOVHandlers<Worker> {
 public:
  explicit Worker(CQOV_TaskMgr* module)
      : QOVHandlers(module, {{1, &Worker::repeat}, {2, &Worker::ignore}, {3, &Worker::refuse}}) {}

 private:
  int repeat(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
    for (const CTLVRecordV3& record : request) {
      answer.addRecord(record.cmd()) = CTLVRecordV3(record);
    }
    return 0;
  }
  int ignore(CQOV_MsgPackage&) { return 0; }
  int refuse(CQOV_MsgPackage&, CQOV_MsgPackage&) { return 5; }
};

class Answerer : public CQOV_TaskMgr {
 public:
  Answerer() : CQOV_TaskMgr(kId, 2, "answerer") {}

  CQOV_Task* createTask() override { return new Worker(this); }
};

}  // namespace

QOV_MODULE(Answerer)
