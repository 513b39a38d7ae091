// What looking for a start code costs.
#pragma once

#include <cstddef>
#include <vector>

#include "Bench.h"

namespace kestro::bench {

// "scan/random" and "scan/zeros": packets without a start code, beside memchr that finds nothing in
// the same bytes. "scan/first": packets that begin with one, of two sizes. Over so many bytes.
std::vector<Case> ScanCases(std::size_t bytes);

}  // namespace kestro::bench
