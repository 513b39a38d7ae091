// Checks the options and tracks of a recording.
#pragma once

#include "recorder/RecorderOptions.h"
#include "recorder/TrackInfo.h"

namespace kestro::record {

// Returns the options with limits and dependent values applied. Throws Refusal when one is invalid.
RecorderOptions CheckedOptions(RecorderOptions options);

// Whether an event may have these times.
bool EventTimesValid(std::int64_t before_ns, std::int64_t after_ns);

// Throws Refusal for tracks that cannot be recorded together. `tracks` are in file order; sets
// values that were left out.
void CheckTracks(Tracks& tracks);

// Throws Refusal when the reserved index alone fills a segment: every key frame would start a new
// file.
void CheckReserve(RecorderOptions const& options, Tracks const& tracks);

}  // namespace kestro::record
