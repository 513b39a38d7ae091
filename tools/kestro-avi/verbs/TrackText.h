// Tracks of an AVI file, described for people.
#pragma once

#include <string>

#include "avi/AviFile.h"

namespace kestro::tool {

// Whether the headers give a video track a frame rate.
bool HasFrameRate(avi::AviTrack const& track);

// What a track is, in lines.
std::string TrackText(avi::AviFile const& avi, std::size_t number);

}  // namespace kestro::tool
