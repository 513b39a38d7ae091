// Chooses the frame rates of a repaired recording.
#pragma once

#include <string>
#include <vector>

#include "repair/Head.h"

namespace kestro::tool {

struct SpeedReport {
  std::vector<std::string> notes;     // rates that a file cannot store exactly
  std::vector<std::string> warnings;  // tracks whose speed changes
};

// Some writers use a multiple of the frame rate and fill up with empty chunks. Returns how many
// chunks there are for each frame, normally 1.
unsigned ChunksPerFrame(avi::AviTrack const& track);

// Sets the rates of the recorded tracks by the rules of "record". `option` overrides the headers;
// 0/1 for none. Throws Error for a rate that is unknown or cannot be recorded.
SpeedReport SetRates(Head& head, base::Fraction const& option);

}  // namespace kestro::tool
