// kestro-avi repair --in-place.
#pragma once

#include <string>
#include <vector>

#include "cli/Progress.h"

namespace kestro::tool {

// Mends the files one after the other and writes what was done. Returns the highest exit code.
int RepairInPlace(std::vector<std::string> const& files, bool json, ProgressOption const& progress);

}  // namespace kestro::tool
