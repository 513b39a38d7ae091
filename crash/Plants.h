// Bugs planted into what a recording has written: the harness must find each of them.
#pragma once

#include "crash/Scenario.h"

namespace kestro::crash {

struct Plant {
  std::string name;
  Ops ops;
  bool garbage = false;   // it shows where a sector is garbage
  bool trusting = false;  // the bug is in who reads: checksums are not checked
};

// Every bug that can be planted into a recording of this mode.
std::vector<Plant> Plants(Recorded const& recorded);

}  // namespace kestro::crash
