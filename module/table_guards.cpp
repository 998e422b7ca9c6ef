#include "module/table_guards.h"

#include <chrono>

#include "task/leader_turn.h"

namespace {

/// Far longer than a reader is inside.
constexpr std::chrono::milliseconds kStandBack{1000};

}  // namespace

CQOV_Module_Loader::TableWriter::TableWriter(CQOV_Module_Loader& loader)
    : lock_(loader.lock_, false) {
  if (lock_.locked()) {
    return;
  }
  ++loader.waitingWriters_;
  lock_.acquire_write();
  {
    const std::lock_guard<std::mutex> entrance(loader.entrance_);
    --loader.waitingWriters_;
  }
  loader.entranceFree_.notify_all();
}

CQOV_Module_Loader::TableReader::TableReader(CQOV_Module_Loader& loader)
    : lock_(standBack(loader), false) {
  if (!lock_.locked()) {
    qov::beforeWaiting();
    lock_.acquire_read();
  }
}

ACE_RW_Thread_Mutex& CQOV_Module_Loader::TableReader::standBack(CQOV_Module_Loader& loader) {
  if (loader.waitingWriters_ > 0) {
    qov::beforeWaiting();
    std::unique_lock<std::mutex> entrance(loader.entrance_);
    loader.entranceFree_.wait_for(entrance, kStandBack,
                                  [&] { return loader.waitingWriters_ == 0; });
  }
  return loader.lock_;
}
