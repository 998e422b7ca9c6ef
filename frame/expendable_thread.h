#ifndef QOV_FRAME_EXPENDABLE_THREAD_H
#define QOV_FRAME_EXPENDABLE_THREAD_H

#include <chrono>
#include <functional>

namespace qov {

/// Runs `work` on a thread of its own and waits for its end, at most for `limit`. False when it has
/// not ended by then. It is left behind then: for the last words of a process, which must not hang
/// in a log or a pipe that takes nothing any more.
///
/// `work` owns what it uses; what it throws ends it. Throws std::system_error when there is no
/// thread for it.
bool endsWithin(std::chrono::milliseconds limit, std::function<void()> work);

}  // namespace qov

#endif
