// Faults planted into the writes of a recording: the harness must find each of them.
#pragma once

#include "crash/Scenario.h"

namespace kestro::crash {

struct Plant {
  std::string name;
  Ops ops;
  bool garbage = false;   // found where a sector is garbage
  bool trusting = false;  // the reader does not check checksums
};

// Every fault that can be planted into this recording.
std::vector<Plant> Plants(Recorded const& recorded);

}  // namespace kestro::crash
