#ifndef QOV_MODULE_TABLE_GUARDS_H
#define QOV_MODULE_TABLE_GUARDS_H

#include <ace/Guard_T.h>
#include <ace/RW_Thread_Mutex.h>

#include "module/module_table.h"

// Who holds the routing table. ACE's lock lets readers in for as long as one of them is there, so
// senders that never pause would keep a writer out for good. While one waits, new readers stand
// back.
//
// A lock that cannot be taken leaves its code in errno, and its holder goes on without it.

/// Holds the table for writing.
class CQOV_Module_Loader::ModuleTable::TableWriter {
 public:
  explicit TableWriter(ModuleTable& table);

  /// Gives the table back before the end.
  void release() { lock_.release(); }

 private:
  ACE_Write_Guard<ACE_RW_Thread_Mutex> lock_;
};

/// Holds the table for reading. A leader may wait here until all modules are loaded, so the
/// wake-ups that it has collected go out first.
class CQOV_Module_Loader::ModuleTable::TableReader {
 public:
  explicit TableReader(ModuleTable& table);

  bool locked() const { return lock_.locked(); }

 private:
  /// Waits while a writer waits. Not for long: a reader inside may be waiting for something that
  /// the calling thread holds, or may be the calling thread.
  static ACE_RW_Thread_Mutex& standBack(ModuleTable& table);

  ACE_Read_Guard<ACE_RW_Thread_Mutex> lock_;
};

#endif
