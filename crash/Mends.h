// Proves that a repair in place loses nothing when the power fails again meanwhile.
#pragma once

#include <cstdio>

#include "crash/Scenario.h"

namespace kestro::crash {

// Takes about `bases` states that a power cut can leave of a recording and repairs them in place.
// Each state that a second power cut can leave of that must play whatever played before, and become
// whole when it is repaired again. With `plants`, plants faults into the repair, each of which must
// be found. Prints what it found; false if something is wrong.
bool ProveMends(std::FILE* out, Recorded const& recorded, long bases, bool plants);

}  // namespace kestro::crash
