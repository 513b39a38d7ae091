// Handles SIGINT, SIGTERM and SIGHUP as a request to finish.
#pragma once

#include <chrono>

#include "cli/Descriptor.h"

namespace kestro::tool {

// From now on the first SIGINT or SIGTERM only makes Interrupted() true, and the second one kills
// the process. SIGHUP makes Interrupted() true every time. SIGPIPE is ignored.
void CatchSignals();

bool Interrupted();

// Makes Interrupted() true without a signal. Any thread. Also ends a call in which the thread of
// CatchSignals waits; repeat it while that thread goes on, because it may be about to wait.
void RequestStop();
// Whether the program ends because of RequestStop alone.
bool StopRequested();

// Blocks SIGUSR1 for this thread and those that it starts, and returns a descriptor from which a
// signalfd_siginfo can be read for it, without blocking. Call it before other threads are started.
Descriptor EventSignals();

// Returns at that time, or earlier when interrupted.
void SleepUntil(std::chrono::steady_clock::time_point then);

}  // namespace kestro::tool
