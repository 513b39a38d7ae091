// What "info" shows of a file in addition to its headers' numbers.
#pragma once

#include <string>

#include "avi/AviFile.h"
#include "cli/Documents.h"
#include "verbs/TrackFormats.h"

namespace kestro::tool {

// When the recording started, and the software; an empty text without either.
std::string SoftwareText(avi::Software const& software);
void AddSoftware(Json& json, avi::Software const& software);

// A track's bit rate, format, name and stream data, one or two lines.
std::string DetailsText(avi::AviTrack const& track, TrackFormat const& format, bool deep);
void AddDetails(Json& json, avi::RiffReader& reader, avi::AviTrack const& track,
                TrackFormat const& format, bool deep);

}  // namespace kestro::tool
