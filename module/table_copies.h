#ifndef QOV_MODULE_TABLE_COPIES_H
#define QOV_MODULE_TABLE_COPIES_H

#include <ace/Message_Block.h>

#include <array>
#include <bitset>
#include <cstdint>

#include "module/module_table.h"

/// The copies of one message for the modules that take them (CQOV_TaskMgr::takeCopiesOf()).
///
/// They are made before its receiver gets the message, which may free it at once, and put into
/// queues when the receiver has it. Both with the table held, so that no taker leaves in between.
class CQOV_Module_Loader::ModuleTable::Copies {
 public:
  Copies() = default;
  /// Frees those that were not put.
  ~Copies();

  Copies(const Copies&) = delete;
  Copies& operator=(const Copies&) = delete;

  void make(const ModuleTable& table, const ACE_Message_Block& mb, u_short receiver);
  void put(const ModuleTable& table);

  /// Logs who gets no copy; with the table free.
  void tellLost(CQOVDebugKitGuard& guard) const;

 private:
  ACE_Message_Block* takeFirst();
  void lose(unsigned int taker, int error);

  // Linked by next(), each addressed to its taker.
  ACE_Message_Block* first_ = nullptr;

  // Of the message; set with the first copy.
  std::uint8_t sender_ = 0;
  std::uint64_t opc_ = 0;

  std::bitset<kGids> losers_;
  std::array<int, kGids> errors_{};  ///< of losers_
};

#endif
