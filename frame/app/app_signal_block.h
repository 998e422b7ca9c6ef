#ifndef QOV_FRAME_APP_APP_SIGNAL_BLOCK_H
#define QOV_FRAME_APP_APP_SIGNAL_BLOCK_H

#include <csignal>

#include "platform/signal_mask.h"

namespace qov {

/// SIGINT, SIGTERM and SIGUSR1, which the event loop carries out. A process inherits its starter's
/// mask, so they may be blocked when it begins.
sigset_t loopSignals();

/// Makes a write to a broken pipe fail instead of ending the process, unless the program handles
/// the signal itself.
void ignoreBrokenPipes();

/// Has the thread that calls exit(), or returns from main, block SIGINT, SIGTERM, SIGUSR1 and
/// SIGPIPE for the rest of the process, which none of them can end then. ACE's own end takes the
/// handlers away and standard output is written after that, but a mask stays.
void blockSignalsAtExit();

}  // namespace qov

#endif
