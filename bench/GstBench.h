// Measures recording in a GStreamer pipeline.
#pragma once

#include <vector>

#include "Bench.h"

namespace kestro::bench {

// "gst/record": demuxes a recording and writes it to tmpfs, with kestroavisink and with GStreamer's
// avimux and filesink. Empty when these elements are missing.
std::vector<Case> GstCases();

}  // namespace kestro::bench
