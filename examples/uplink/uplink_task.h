#ifndef QOV_EXAMPLES_UPLINK_UPLINK_TASK_H
#define QOV_EXAMPLES_UPLINK_UPLINK_TASK_H

#include <qovpub/qov_task.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "examples/common/messages.h"
#include "examples/uplink/counted_link.h"
#include "examples/uplink/plan.h"

namespace devagent {

/// A thread that owns the link to the management endpoint: reads the endpoint's tables and hands
/// them to the inventory, and pushes the inventory's records to the endpoint, each when it is due.
///
/// An exchange may take as long as the link waits; no worker does that for it. The thread ends at
/// once when the module tells its tasks to end: between two jobs it waits on the task's own queue,
/// and an exchange, or the walk that it belongs to, is interrupted. Two waits are not: to connect
/// when the link is made, up to two seconds, and for the endpoint's name to be looked up, which
/// takes as long as the system's name servers do.
///
/// Whatever a job throws ends that job alone. The next one is done when it is due.
class UplinkTask : public CQOV_Task {
 public:
  explicit UplinkTask(CQOV_TaskMgr* module);

  /// Starts the thread among those of the module, which stops and joins it. 0 or -1.
  int start(const Plan& plan);

  int svc() override;
  /// Ends the exchange under way, too.
  void notifyExit() override;

 private:
  using Clock = std::chrono::steady_clock;

  struct Job {
    std::string name;
    std::chrono::milliseconds period;
    std::function<void()> work;
    Clock::time_point due{};  ///< at once
  };

  struct Tally {
    std::uint64_t walks = 0;   ///< that came to the table's end
    std::uint64_t tables = 0;  ///< of these: handed to the inventory
    std::uint64_t rowsHanded = 0;
    std::uint64_t rows = 0;  ///< all that were read
    std::uint64_t pushed = 0;
    std::uint64_t tablesTaken = 0;  ///< what the inventory says it was given
    std::uint64_t rowsTaken = 0;
    std::map<std::string, unsigned long> lastRows;  ///< of the latest table of each name
  };

  void makeLink();
  void dropLink();
  bool isToldToEnd();
  void runDueJobs();
  /// Whatever `job` throws ends that job alone, never the thread.
  static void attempt(const char* name, const std::function<void()>& job);
  void walk(const TablePlan& table);
  void handOver(const std::string& name, std::unique_ptr<CT7QPackageV3> rows);
  void push();
  void push(Operation operation, std::uint32_t table);
  std::string describe() const;
  bool waitForNextJob();

  // The thread's alone once that is started.
  std::vector<Job> jobs_;
  Tally tally_;

  // For link_ as a pointer, which the thread alone changes, and toldToEnd_.
  std::mutex mutex_;
  std::unique_ptr<CountedLink> link_;
  bool toldToEnd_ = false;
};

}  // namespace devagent

#endif
