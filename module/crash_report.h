#ifndef QOV_MODULE_CRASH_REPORT_H
#define QOV_MODULE_CRASH_REPORT_H

namespace qov {

/// From now on SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS and SIGABRT end the process with one line on
/// standard error and in the log file. It names the thread, the signal, the address, and the
/// library and the place in it as addr2line takes it; of a call to where no code is, its caller's.
/// Then the signal does what it does by itself: it ends the process, with a core file where those
/// are on. A signal that the program handles, or a sanitizer, is left to them. No line after last
/// words, which have told the cause.
///
/// An overflow of the stack is told of the calling thread and of those that ACE starts from now on,
/// which are all of a module but those that it makes itself.
///
/// Thread: the main one.
/// Errors: throws std::bad_alloc and, as getProcessLogFileName() does, CQOV_Exception.
void tellCrashes();

}  // namespace qov

#endif
