#include <qovpub/qov_common_debugkit.h>

#include "diag/kit_registry.h"
#include "diag/log_level.h"

namespace {

unsigned int countDeletedKits() {
  return qov::deletedKits.load(std::memory_order_acquire);
}

}  // namespace

CQOVDebugKitGuard::CQOVDebugKitGuard(int kitId, const std::string& name)
    : kitId_(static_cast<unsigned int>(kitId)),
      deletedKits_(countDeletedKits()),
      kit_(qov::KitRegistry::find(kitId_)),
      owned_(name),
      name_(owned_.c_str()) {
  if (qov::isOn(qov::kTrace)) {
    trace("enter ", "...");
  }
}

CQOVDebugKitGuard::CQOVDebugKitGuard(int kitId, Borrowed name)
    : kitId_(static_cast<unsigned int>(kitId)),
      deletedKits_(countDeletedKits()),
      kit_(qov::KitRegistry::find(kitId_)),
      name_(name.text) {
  if (qov::isOn(qov::kTrace)) {
    trace("enter ", "...");
  }
}

CQOVDebugKitGuard::~CQOVDebugKitGuard() {
  if (qov::isOn(qov::kTrace)) {
    trace("leave ", ok_ ? ": OK" : ": NOK");
  }
}

const CQOVDebugKit* CQOVDebugKitGuard::kit() {
  if (deletedKits_ != countDeletedKits()) {
    deletedKits_ = countDeletedKits();
    kit_ = qov::KitRegistry::find(kitId_);
  }
  return kit_;
}

/// Not inlined: a silent guard would save registers for it.
[[gnu::noinline]] void CQOVDebugKitGuard::trace(const char* before, const char* after) {
  if (const CQOVDebugKit* const to = kit()) {
    to->traceCall(before, name_, after);
  }
}

void CQOVDebugKitGuard::debug(unsigned long long logId, const char* function, unsigned int line,
                              const char* format, ...) {
  // Every message passes a few of these, so one that is off costs no list of arguments.
  if (!qov::isOn(qov::kDebug)) {
    return;
  }
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
