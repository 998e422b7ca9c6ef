#include <qovpub/qov_common_debugkit.h>

#include "diag/call_trace.h"
#include "diag/kit_registry.h"
#include "diag/log_level.h"

namespace qov {

namespace {

unsigned int countDeletedKits() {
  return deletedKits.load(std::memory_order_acquire);
}

}  // namespace

inline GuardState::GuardState(int kitId, const std::string& name)
    : kitId_(static_cast<unsigned int>(kitId)),
      deletedKits_(countDeletedKits()),
      kit_(KitRegistry::find(kitId_)),
      owned_(name),
      name_(owned_.c_str()) {}

inline GuardState::GuardState(int kitId, Borrowed name)
    : kitId_(static_cast<unsigned int>(kitId)),
      deletedKits_(countDeletedKits()),
      kit_(KitRegistry::find(kitId_)),
      name_(name.text) {}

inline const CQOVDebugKit* GuardState::kit() {
  if (deletedKits_ != countDeletedKits()) {
    deletedKits_ = countDeletedKits();
    kit_ = KitRegistry::find(kitId_);
  }
  return kit_;
}

/// Not inlined: a silent guard would save registers for it.
[[gnu::noinline]] void GuardState::trace(const char* before, const char* after) {
  if (const CQOVDebugKit* const to = kit()) {
    traceCall(*to, before, name_, after);
  }
}

inline void GuardState::enter() {
  if (isOn(kTrace)) {
    trace("enter ", "...");
  }
}

inline void GuardState::leave() {
  if (isOn(kTrace)) {
    trace("leave ", ok_ ? ": OK" : ": NOK");
  }
}

}  // namespace qov

CQOVDebugKitGuard::CQOVDebugKitGuard(int kitId, const std::string& name) : state_(kitId, name) {
  state_.enter();
}

CQOVDebugKitGuard::CQOVDebugKitGuard(int kitId, qov::Borrowed name) : state_(kitId, name) {
  state_.enter();
}

CQOVDebugKitGuard::~CQOVDebugKitGuard() {
  state_.leave();
}

void CQOVDebugKitGuard::debug(unsigned long long logId, const char* function, unsigned int line,
                              const char* format, ...) {
  // Every message passes a few of these, so one that is off costs no list of arguments.
  if (!qov::isOn(qov::kDebug)) {
    return;
  }
  va_list args;
  va_start(args, format);
  if (const CQOVDebugKit* const to = state_.kit()) {
    to->debug(logId, function, line, format, args);
  }
  va_end(args);
}

void CQOVDebugKitGuard::info(unsigned long long logId, const char* function, unsigned int line,
                             const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (const CQOVDebugKit* const to = state_.kit()) {
    to->info(logId, function, line, format, args);
  }
  va_end(args);
}

void CQOVDebugKitGuard::warn(unsigned long long logId, const char* function, unsigned int line,
                             const char* format, ...) {
  state_.noteFailure();
  va_list args;
  va_start(args, format);
  if (const CQOVDebugKit* const to = state_.kit()) {
    to->warn(logId, function, line, format, args);
  }
  va_end(args);
}

void CQOVDebugKitGuard::error(unsigned long long logId, const char* function, unsigned int line,
                              const char* format, ...) {
  state_.noteFailure();
  va_list args;
  va_start(args, format);
  if (const CQOVDebugKit* const to = state_.kit()) {
    to->error(logId, function, line, format, args);
  }
  va_end(args);
}
