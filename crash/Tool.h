// What the tool does for a recording and after a power cut.
#pragma once

#include <string>
#include <vector>

#include "crash/Scenario.h"

namespace kestro::crash {

// Puts a recording, and the files next to it, into a folder and repairs it. Returns how many
// packets it names as lost, -1 when it is refused.
long Repair(std::string const& folder, std::vector<unsigned char> const& file, Others const& others,
            std::vector<unsigned char>& repaired);

// Repairs them in place. Returns what was written, after the operations that made the files;
// nothing if it is refused. The files then hold the result.
struct Mending {
  Ops ops;
  std::size_t begin = 0;                // of the first operation of the repair
  bool refused = false, whole = false;  // whole: there is nothing left to do then
  std::string why;
};
Mending Mend(std::string const& folder, test::MemoryIO& file, Others& others);

}  // namespace kestro::crash
