#include "skeleton_module.h"

#include <qovpub/qov_module.h>

#include "skeleton_worker.h"

namespace skeleton_module {

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(kModule, kWorkers, "skeleton") {}

  CQOV_Task* createTask() override { return new Worker(this); }

 private:
  static constexpr unsigned int kWorkers = 2;
};

}  // namespace skeleton_module

QOV_MODULE(skeleton_module::Module)
