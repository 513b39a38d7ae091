// Checks the headers once the data is counted.
#pragma once

#include "verify/Findings.h"
#include "verify/Streams.h"

namespace kestro::tool {

// Counts, rates, lengths and picture sizes of the headers, and the durations of the tracks.
void CheckHeaders(avi::AviFile& avi, std::vector<Stream> const& streams, Findings& findings);

}  // namespace kestro::tool
