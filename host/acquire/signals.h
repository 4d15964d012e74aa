// Signals, as something that the main thread waits for.
#ifndef HOST_ACQUIRE_SIGNALS_H
#define HOST_ACQUIRE_SIGNALS_H

#include <chrono>

namespace host {

/// Blocks SIGINT, SIGTERM and SIGHUP in this thread and those that it starts, and ignores SIGPIPE and
/// SIGXFSZ: a pipe without a reader and a file at its limit are errors of the write. Once, before any other
/// thread is started.
void hold_signals();

/// Waits at most so long for one of the three; 0 when none came.
int wait_signal(std::chrono::milliseconds longest);

}  // namespace host

#endif
