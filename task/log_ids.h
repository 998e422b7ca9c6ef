#ifndef QOV_TASK_LOG_IDS_H
#define QOV_TASK_LOG_IDS_H

namespace qov {

/// Log id of the debug traces of message traffic.
constexpr unsigned long long kTrafficLogId = 65535;

/// The library's own records have ids from 65536 on; those of the task runtime start here, and each
/// call site adds a small number of its own.
constexpr unsigned long long kLogIdBase = 65636;

/// Those of what stands on the runtime for modules: periodic tasks, continuations, slow handlers.
constexpr unsigned long long kKitLogIdBase = 65900;

/// Debug kit of the library's own records.
constexpr int kPublicKit = 0;

}  // namespace qov

#endif
