// Every header, and what they have templates for: a template is checked when somebody uses it.
#include <all_headers.h>

namespace {

class Worker : public QOVHandlers<Worker> {
 public:
  explicit Worker(CQOV_TaskMgr* module)
      : QOVHandlers(module, {{1, &Worker::answer}, {2, &Worker::take}}) {}

 private:
  int answer(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
    answer.addRecord(request.count()).addString(1, "text").addUnsigned(2, 2);
    return 0;
  }
  int take(CQOV_MsgPackage& message) { return message.count() == 0 ? 0 : 1; }
};

unsigned int sumOf(const CT7QPackageV3& package, const unsigned char* bytes) {
  CT7QPackageV3 copy(package);
  unsigned int sum = copy.decode(bytes, 1);
  for (CTLVRecordV3& record : copy) {
    for (const CTLVCell& cell : std::as_const(record)) {
      sum += cell.length();
    }
    record.erase(record.begin());
  }
  return sum;
}

}  // namespace

std::unique_ptr<CQOV_Task> makeWorker(CQOV_TaskMgr* module);
unsigned int use(CQOVLongSocket& link, CT7QPackageV3& package);

std::unique_ptr<CQOV_Task> makeWorker(CQOV_TaskMgr* module) {
  const CQOVDebugKitGuard guard(0, "std::unique_ptr<CQOV_Task> makeWorker(CQOV_TaskMgr*)");
  return std::make_unique<Worker>(module);
}

unsigned int use(CQOVLongSocket& link, CT7QPackageV3& package) {
  const unsigned char byte = 0;
  return link.sendMsg(&package) + sumOf(package, &byte);
}
