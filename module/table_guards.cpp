#include "module/table_guards.h"

#include <chrono>

#include "task/leader_turn.h"

namespace {

/// Far longer than a reader is inside.
constexpr std::chrono::milliseconds kStandBack{1000};

}  // namespace

CQOV_Module_Loader::Work::TableWriter::TableWriter(Work& work) : lock_(work.lock_, false) {
  if (lock_.locked()) {
    return;
  }
  ++work.waitingWriters_;
  lock_.acquire_write();
  {
    const std::lock_guard<std::mutex> entrance(work.entrance_);
    --work.waitingWriters_;
  }
  work.entranceFree_.notify_all();
}

CQOV_Module_Loader::Work::TableReader::TableReader(Work& work) : lock_(standBack(work), false) {
  if (!lock_.locked()) {
    qov::beforeWaiting();
    lock_.acquire_read();
  }
}

ACE_RW_Thread_Mutex& CQOV_Module_Loader::Work::TableReader::standBack(Work& work) {
  if (work.waitingWriters_ > 0) {
    qov::beforeWaiting();
    std::unique_lock<std::mutex> entrance(work.entrance_);
    work.entranceFree_.wait_for(entrance, kStandBack, [&] { return work.waitingWriters_ == 0; });
  }
  return work.lock_;
}
