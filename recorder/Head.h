// The head of a recording, as the muxer writes it.
#pragma once

#include <string>

#include "recorder/Tags.h"
#include "recorder/TrackInfo.h"

namespace kestro::record {

// All that precedes JUNK when the muxer has opened a file. `rate`: its "constFrameRate";
// without tags, strd, strn and isft are left out.
std::string ComposeHead(Tracks const& tracks, base::Fraction rate, Tags const* tags);

}  // namespace kestro::record
