#ifndef QOV_FRAME_SHUTDOWN_SUPERVISION_H
#define QOV_FRAME_SHUTDOWN_SUPERVISION_H

#include <type_traits>
#include <utility>

namespace qov {

template <class Guard, class = void>
struct HasShutdownBegins : std::false_type {};

template <class Guard>
struct HasShutdownBegins<Guard, std::void_t<decltype(std::declval<Guard&>().shutdownBegins())>>
    : std::true_type {};

template <class Guard, class = void>
struct HasBeforeAbort : std::false_type {};

template <class Guard>
struct HasBeforeAbort<Guard, std::void_t<decltype(std::declval<Guard&>().beforeAbort(nullptr))>>
    : std::true_type {};

/// How long the end of the modules may take, in seconds.
constexpr unsigned kShutdownSeconds = 450;

/// Tells the guard that lives through the process's shutdown that it begins now. The stand-in of
/// the platform guard library needs to hear it; the platform's own guard has no such operation, and
/// then this does nothing. Not for signal handlers.
template <class Guard>
void shutdownBegins(Guard& guard) {
  if constexpr (HasShutdownBegins<Guard>::value) {
    guard.shutdownBegins();
  }
}

/// Has the guard call `report` before it aborts the process, where it is the stand-in's.
template <class Guard>
void beforeAbort(Guard& guard, void (*report)()) {
  if constexpr (HasBeforeAbort<Guard>::value) {
    guard.beforeAbort(report);
  }
}

}  // namespace qov

#endif
