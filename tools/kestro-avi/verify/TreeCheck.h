// Checks the chunk tree.
#pragma once

#include "avi/AviFile.h"
#include "verify/Findings.h"

namespace kestro::tool {

// Compares the sizes of lists and chunks with the file's, and with each other.
void CheckTree(avi::AviFile& avi, Findings& findings);

}  // namespace kestro::tool
