#ifndef QOV_MODULE_MODULE_TABLE_H
#define QOV_MODULE_MODULE_TABLE_H

#include <ace/DLL_Manager.h>
#include <ace/RW_Thread_Mutex.h>

#include <array>
#include <atomic>
#include <bitset>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_task_mgr.h>

#include "task/copy_choice.h"

class CQOVDebugKitGuard;

/// The routing table, and how modules get into it and out again.
///
/// Thread, errors: as the loader.
/// Owns:   the task managers in the table.
///
/// Hidden: a nested class would be shown to the library's users as the one around it is.
class __attribute__((visibility("hidden"))) CQOV_Module_Loader::ModuleTable {
 public:
  static constexpr std::size_t kGids = 256;

  enum class Delivery;
  class Copies;

  ModuleTable() = default;
  ModuleTable(const ModuleTable&) = delete;
  ModuleTable& operator=(const ModuleTable&) = delete;

  bool load(const std::list<std::string>& names, CQOVDebugKitGuard& guard);
  void unload(CQOVDebugKitGuard& guard);
  /// Leaves `copies` empty where nobody takes any: a message costs no more then.
  Delivery deliver(u_short pid, ACE_Message_Block* mb, std::optional<Copies>& copies);
  /// False, with errno set, when no copy can be made; `refused` holds who had no room.
  bool copyToAll(const ACE_Message_Block& mb, std::bitset<kGids>& refused);
  void stopLeftovers();
  void abandonModules();
  /// Of the calling thread, if it is in load().
  static void endInterruptedLoad();

 private:
  /// putq() takes it for an absolute time, so that a full queue refuses at once.
  static constexpr time_t kPutSeconds = 1;

  class TableReader;
  class TableWriter;
  struct Loading;
  struct StopAndDelete {
    void operator()(CQOV_TaskMgr* manager) const;
  };
  using ManagerPtr = std::unique_ptr<CQOV_TaskMgr, StopAndDelete>;
  /// One loaded module: its manager, and the library that the manager's code lives in.
  struct Entry {
    /// Stops and deletes the module, and tells the others, which may wait for its answers.
    void end();

    ManagerPtr taskMgr;
    qov::CopyChoice copies;
    /// Belongs to ACE's DLL manager, which keeps handle and name even after the library is closed.
    ACE_DLL_Handle* dll = nullptr;
  };

  bool loadModules(const std::list<std::string>& names, ManagerPtr& manager,
                   CQOVDebugKitGuard& guard);
  bool loadModule(const std::string& name, ManagerPtr& manager, CQOVDebugKitGuard& guard);
  ManagerPtr createModule(const std::string& name, ACE_DLL_Handle*& dll, CQOVDebugKitGuard& guard);
  bool startModule(CQOV_TaskMgr& manager, const std::string& name, ACE_DLL_Handle& dll,
                   CQOVDebugKitGuard& guard);
  std::unique_ptr<Entry> takeFirst();
  bool unloadFirst(CQOVDebugKitGuard& guard);

  /// Set by a load() that succeeded; guarded by lock_.
  static bool bModuleLoaded_;
  /// What the calling thread's load() has in hand; null outside of one.
  static thread_local Loading* loading_;

  ACE_RW_Thread_Mutex lock_;
  /// Guarded by lock_; a null pointer is a free gid.
  std::array<std::unique_ptr<Entry>, kGids> modules_;
  /// Those among them that take copies; guarded by lock_.
  std::vector<std::uint8_t> takers_;

  /// How many threads wait to write the table; lowered under entrance_.
  std::atomic<int> waitingWriters_{0};
  /// Where readers stand back for these.
  std::mutex entrance_;
  std::condition_variable entranceFree_;
};

#endif
