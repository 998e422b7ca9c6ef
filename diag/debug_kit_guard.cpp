#include <qovpub/qov_common_debugkit.h>

#include "diag/deleted_kits.h"
#include "diag/log_level.h"

CQOVDebugKitGuard::CQOVDebugKitGuard(int kitId, const std::string& name)
    : kitId_(static_cast<unsigned int>(kitId)), owned_(name), name_(owned_.c_str()) {
  findKit();
  if (qov::isOn(qov::kTrace)) {
    trace("enter ", "...");
  }
}

CQOVDebugKitGuard::CQOVDebugKitGuard(int kitId, Borrowed name)
    : kitId_(static_cast<unsigned int>(kitId)), name_(name.text) {
  findKit();
  if (qov::isOn(qov::kTrace)) {
    trace("enter ", "...");
  }
}

CQOVDebugKitGuard::~CQOVDebugKitGuard() {
  if (qov::isOn(qov::kTrace)) {
    trace("leave ", ok_ ? ": OK" : ": NOK");
  }
}

void CQOVDebugKitGuard::findKit() {
  deletedKits_ = qov::deletedKits.load(std::memory_order_acquire);
  CQOVDebugKitMgr* const registry = CQOVDebugKitMgr::instance();
  kit_ = registry != nullptr ? registry->find(kitId_) : nullptr;
}

const CQOVDebugKit* CQOVDebugKitGuard::kit() {
  if (deletedKits_ != qov::deletedKits.load(std::memory_order_acquire)) {
    findKit();
  }
  return kit_;
}

void CQOVDebugKitGuard::trace(const char* before, const char* after) {
  if (const CQOVDebugKit* const to = kit()) {
    to->traceCall(before, name_, after);
  }
}

void CQOVDebugKitGuard::debug(unsigned long long logId, const char* function, unsigned int line,
                              const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (const CQOVDebugKit* const to = kit()) {
    to->debug(logId, function, line, format, args);
  }
  va_end(args);
}

void CQOVDebugKitGuard::info(unsigned long long logId, const char* function, unsigned int line,
                             const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (const CQOVDebugKit* const to = kit()) {
    to->info(logId, function, line, format, args);
  }
  va_end(args);
}

void CQOVDebugKitGuard::warn(unsigned long long logId, const char* function, unsigned int line,
                             const char* format, ...) {
  ok_ = false;
  va_list args;
  va_start(args, format);
  if (const CQOVDebugKit* const to = kit()) {
    to->warn(logId, function, line, format, args);
  }
  va_end(args);
}

void CQOVDebugKitGuard::error(unsigned long long logId, const char* function, unsigned int line,
                              const char* format, ...) {
  ok_ = false;
  va_list args;
  va_start(args, format);
  if (const CQOVDebugKit* const to = kit()) {
    to->error(logId, function, line, format, args);
  }
  va_end(args);
}
