// Checks the chunk tree.
#pragma once

#include "avi/AviFile.h"
#include "verify/Findings.h"

namespace kestro::tool {

// Checks the sizes of lists and chunks against the file and each other.
void CheckTree(avi::AviFile& avi, Findings& findings);

}  // namespace kestro::tool
