// The module `inventory`: a pool of workers that read the machine's state when asked, and keep
// the tables that they are given.
#include <qovpub/qov_module.h>

#include <memory>

#include "examples/common/messages.h"
#include "examples/inventory/inventory_worker.h"

namespace devagent {
namespace {

class InventoryModule : public CQOV_TaskMgr {
 public:
  InventoryModule() : CQOV_TaskMgr(kInventory, kWorkers, "inventory") {}

  CQOV_Task* createTask() override {
    return std::make_unique<InventoryWorker>(this, shared_).release();
  }

 private:
  static constexpr unsigned int kWorkers = 3;

  // Shared by the workers. Their threads have ended when this is destroyed.
  InventoryWorker::Shared shared_;
};

}  // namespace
}  // namespace devagent

QOV_MODULE(devagent::InventoryModule)
