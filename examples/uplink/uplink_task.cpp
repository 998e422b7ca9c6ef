#include "examples/uplink/uplink_task.h"

#include <ace/OS_NS_sys_time.h>
#include <qovpub/qov_log.h>
#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <exception>
#include <sstream>
#include <utility>

#include "tools/common/endpoint_protocol.h"

namespace devagent {
namespace {

using qov::endpoint::command;

constexpr std::chrono::seconds kAnswerTime(20);
constexpr const char* kRecords = "records";

/// Which of the inventory's records go into which table of the endpoint.
constexpr std::pair<Operation, std::uint32_t> kPushed[] = {
    {kReadHost, qov::endpoint::kFirstStoredTable},
    {kReadInterfaces, qov::endpoint::kFirstStoredTable + 1},
    {kReadFileSystems, qov::endpoint::kFirstStoredTable + 2},
};

/// Whether the last record is the one without cells, which closes a walk that came to its end.
bool isClosed(const CT7QPackageV3& rows) {
  return rows.count() > 0 && rows[rows.count() - 1].count() == 0;
}

}  // namespace

UplinkTask::UplinkTask(CQOV_TaskMgr* module) : CQOV_Task(module) {}

int UplinkTask::start(const Plan& plan) {
  for (const TablePlan& table : plan.tables) {
    jobs_.push_back({table.name, table.period, [this, table] { walk(table); }});
  }
  jobs_.push_back({kRecords, plan.pushPeriod, [this] { push(); }});
  return activate(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, 1, 0, ACE_DEFAULT_THREAD_PRIORITY,
                  taskMgr()->gid());
}

int UplinkTask::svc() {
  QOV_GUARD(guard, kUplink);
  // Made here: connecting takes its time, in which the other modules are to start.
  attempt("link", [this] { makeLink(); });
  if (link_ == nullptr) {
    return -1;
  }
  do {
    runDueJobs();
    attempt("report", [this] { writeEntry(*this, QOVMsgHead::kNotice, describe()); });
  } while (waitForNextJob());
  // The journal has ended before: modules end in the order of their ids.
  QOV_INFO(guard, 1, "in all: %s", describe().c_str());
  dropLink();
  return 0;
}

void UplinkTask::notifyExit() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    toldToEnd_ = true;
    if (link_ != nullptr) {
      link_->interrupt();
    }
  }
  CQOV_Task::notifyExit();
}

void UplinkTask::makeLink() {
  auto link = std::make_unique<CountedLink>();
  const std::lock_guard<std::mutex> lock(mutex_);
  link_ = std::move(link);
  if (toldToEnd_) {
    link_->interrupt();
  }
}

void UplinkTask::dropLink() {
  const std::lock_guard<std::mutex> lock(mutex_);
  link_.reset();
}

bool UplinkTask::isToldToEnd() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return toldToEnd_;
}

void UplinkTask::runDueJobs() {
  for (Job& job : jobs_) {
    const auto now = Clock::now();
    if (job.due <= now && !isToldToEnd()) {
      job.due = now + job.period;
      attempt(job.name.c_str(), job.work);
    }
  }
}

void UplinkTask::attempt(const char* name, const std::function<void()>& job) {
  QOV_GUARD(guard, kUplink);
  try {
    job();
  } catch (const std::exception& exception) {
    QOV_WARN(guard, 2, "%s given up: %s", name, exception.what());
  }
}

void UplinkTask::walk(const TablePlan& table) {
  auto rows = std::make_unique<CT7QPackageV3>();
  rows->addRecord(command(qov::endpoint::kGetNext, table.table));
  const unsigned int result = link_->sendGetNextMsgV3(rows.get());
  const bool complete = result == 0 && isClosed(*rows);
  tally_.rows += rows->count() - (complete ? 1 : 0);
  if (complete) {
    ++tally_.walks;
    handOver(table.name, std::move(rows));
  }
}

void UplinkTask::handOver(const std::string& name, std::unique_ptr<CT7QPackageV3> rows) {
  const unsigned long count = rows->count() - 1;
  auto message = std::make_unique<CQOV_OM_MsgPackage>(rows.release());
  const QOVAnswer answer =
      QOVRequest(*this, kInventory, kTakeTable, std::move(message)).ask(kAnswerTime);
  if (!answer) {
    return;
  }
  ++tally_.tables;
  tally_.rowsHanded += count;
  tally_.lastRows[name] = count;
  tally_.tablesTaken = (*answer)[0].getUnsigned(kTablesTaken);
  tally_.rowsTaken = (*answer)[0].getUnsigned(kRowsTaken);
}

void UplinkTask::push() {
  for (const auto& [operation, table] : kPushed) {
    push(operation, table);
  }
}

void UplinkTask::push(Operation operation, std::uint32_t table) {
  const QOVAnswer answer = QOVRequest(*this, kInventory, operation).ask(kAnswerTime);
  if (!answer || answer->count() == 0) {
    return;
  }
  CT7QPackageV3 message;
  for (unsigned long i = 0; i < answer->count(); ++i) {
    CTLVRecordV3& record = message.addRecord(0);
    record.clone((*answer)[i]);
    record.setCmd(command(qov::endpoint::kStore, table));
  }
  if (link_->sendMsg(&message) == 0) {
    tally_.pushed += answer->count();
  }
}

std::string UplinkTask::describe() const {
  const LinkTally& link = link_->tally();
  std::ostringstream text;
  text << "exchanges " << link.exchanges << ", answered " << link.answered << ", resends "
       << link.resends << ", reconnects " << link.reconnects << "; rows walked " << tally_.rows
       << ", tables walked " << tally_.walks << ", records pushed " << tally_.pushed
       << "; tables handed over " << tally_.tables << " with rows " << tally_.rowsHanded
       << ", taken by the inventory " << tally_.tablesTaken << " with rows taken "
       << tally_.rowsTaken << "; latest";
  for (const auto& [name, rows] : tally_.lastRows) {
    text << ' ' << name << ' ' << rows;
  }
  return text.str();
}

/// False when the thread is to end. All that comes into its queue is the block that wakes it then.
bool UplinkTask::waitForNextJob() {
  const auto next = std::min_element(jobs_.begin(), jobs_.end(), [](const Job& a, const Job& b) {
                      return a.due < b.due;
                    })->due;
  const auto left = std::max(next - Clock::now(), Clock::duration::zero());
  ACE_Time_Value until =
      ACE_OS::gettimeofday() +
      ACE_Time_Value(std::chrono::duration_cast<std::chrono::microseconds>(left));
  ACE_Message_Block* block = nullptr;
  if (getq(block, &until) != -1) {
    block->release();
  }
  return !isToldToEnd();
}

}  // namespace devagent
