// The file header, as the muxer writes it.
#pragma once

#include <string>

#include "recorder/Tags.h"
#include "recorder/TrackInfo.h"

namespace kestro::record {

// The bytes before JUNK in a file that the muxer has just opened. `rate`: the muxer's
// "constFrameRate". If `tags` is null, strd, strn and isft are left out.
std::string ComposeHead(Tracks const& tracks, base::Fraction rate, Tags const* tags);

}  // namespace kestro::record
