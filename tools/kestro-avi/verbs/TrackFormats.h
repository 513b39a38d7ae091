// The formats of the video tracks, as stored in their frames.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "avi/AviFile.h"
#include "avi/VideoFormat.h"

namespace kestro::tool {

// Of one track; empty for other tracks than video, and where nothing could be read.
struct TrackFormat {
  std::optional<avi::VideoFormat> format;  // of the first frame that has it
  // With `deep`: how often the parameter sets of a key frame differ from those before, and when
  // this is first the case.
  std::uint64_t changes = 0;
  std::int64_t firstChange_ms = 0;
};

// Reads the first frames or, with `deep`, every key frame. Returns the formats by track.
std::vector<TrackFormat> ReadFormats(avi::AviFile& avi, bool deep);

}  // namespace kestro::tool
