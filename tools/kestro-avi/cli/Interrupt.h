// SIGINT, SIGTERM and SIGHUP as a request to finish.
#pragma once

#include <chrono>

namespace kestro::tool {

// From here on the first SIGINT or SIGTERM is a request, the second one kills; a terminal that goes
// away is a request. Nobody needs to read the messages.
void CatchSignals();

bool Interrupted();

// Waits until then, or until interrupted.
void SleepUntil(std::chrono::steady_clock::time_point then);

}  // namespace kestro::tool
