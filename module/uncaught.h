#ifndef QOV_MODULE_UNCAUGHT_H
#define QOV_MODULE_UNCAUGHT_H

namespace qov {

/// From now on an exception that nobody catches, missing memory above all, ends the process
/// (SIGABRT) with one line on standard error and in the log, which names the thread. Without memory
/// for that line there is a shorter one, on standard error alone. A program that has a terminate
/// handler of its own keeps it.
///
/// Thread: any. Errors: none.
void tellUncaught();

}  // namespace qov

#endif
