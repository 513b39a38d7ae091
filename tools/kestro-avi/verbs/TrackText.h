// Describes tracks of an AVI file.
#pragma once

#include <string>

#include "avi/AviFile.h"
#include "cli/Documents.h"

namespace kestro::tool {

// Whether it is a video track with a frame rate in its headers.
bool HasFrameRate(avi::AviTrack const& track);

// A description of the track in two lines.
std::string TrackText(avi::AviFile const& avi, std::size_t number);
// The same for programs.
Json TrackJson(avi::AviFile const& avi, std::size_t number);

}  // namespace kestro::tool
