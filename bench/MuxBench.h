// Measures recording, compared with a plain copy and another muxer.
#pragma once

#include <vector>

#include "Bench.h"
#include "Mix.h"

namespace kestro::bench {

// "mux/null" and "mux/tmpfs". The mix must outlive the cases.
std::vector<Case> MuxCases(Mix const& mix, std::int64_t packets);

}  // namespace kestro::bench
