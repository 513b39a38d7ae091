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

}  // namespace kestro::crash
