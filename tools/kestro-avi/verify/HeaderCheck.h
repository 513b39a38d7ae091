// Checks the headers against the data.
#pragma once

#include "verify/Findings.h"
#include "verify/Streams.h"

namespace kestro::tool {

// Checks counts, rates, lengths and picture sizes in the headers, and the durations of the tracks.
// Needs the counts from DataCheck.
void CheckHeaders(avi::AviFile& avi, std::vector<Stream> const& streams, Findings& findings);

}  // namespace kestro::tool
