// Measures the search for start codes.
#pragma once

#include <cstddef>
#include <vector>

#include "Bench.h"

namespace kestro::bench {

// "scan/random" and "scan/zeros": packets without a start code, compared with a memchr that finds
// nothing. "scan/first": packets of two sizes that begin with a start code. `bytes`: total size.
std::vector<Case> ScanCases(std::size_t bytes);

}  // namespace kestro::bench
