#include "module/table_guards.h"

#include <chrono>

#include "task/leader_turn.h"

namespace {

/// Far longer than a reader is inside.
constexpr std::chrono::milliseconds kStandBack{1000};

}  // namespace

CQOV_Module_Loader::ModuleTable::TableWriter::TableWriter(ModuleTable& table)
    : lock_(table.lock_, false) {
  if (lock_.locked()) {
    return;
  }
  ++table.waitingWriters_;
  lock_.acquire_write();
  {
    const std::lock_guard<std::mutex> entrance(table.entrance_);
    --table.waitingWriters_;
  }
  table.entranceFree_.notify_all();
}

CQOV_Module_Loader::ModuleTable::TableReader::TableReader(ModuleTable& table)
    : lock_(standBack(table), false) {
  if (!lock_.locked()) {
    qov::beforeWaiting();
    lock_.acquire_read();
  }
}

ACE_RW_Thread_Mutex& CQOV_Module_Loader::ModuleTable::TableReader::standBack(ModuleTable& table) {
  if (table.waitingWriters_ > 0) {
    qov::beforeWaiting();
    std::unique_lock<std::mutex> entrance(table.entrance_);
    table.entranceFree_.wait_for(entrance, kStandBack, [&] { return table.waitingWriters_ == 0; });
  }
  return table.lock_;
}
