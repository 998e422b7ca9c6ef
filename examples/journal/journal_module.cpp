// The module `journal`: writes what the other modules report.
#include <qovpub/qov_module.h>

#include <memory>

#include "examples/common/messages.h"
#include "examples/journal/journal_worker.h"

namespace devagent {
namespace {

class JournalModule : public CQOV_TaskMgr {
 public:
  JournalModule() : CQOV_TaskMgr(kJournal, kWorkers, "journal") {}

  CQOV_Task* createTask() override {
    return std::make_unique<JournalWorker>(this, entries_).release();
  }

 private:
  static constexpr unsigned int kWorkers = 2;

  // Shared by the workers. Their threads have ended when this is destroyed.
  JournalWorker::EntryCount entries_{0};
};

}  // namespace
}  // namespace devagent

QOV_MODULE(devagent::JournalModule)
