// Reads from the header of a recording what is needed to record it again.
#pragma once

#include <string>
#include <vector>

#include "avi/AviFile.h"
#include "recorder/RecorderOptions.h"
#include "recorder/TrackInfo.h"

namespace kestro::tool {

using base::int64;

using record::TrackInfo;

struct Head {
  std::vector<avi::AviTrack> tracks;  // as in the header
  std::vector<int> numbers;           // by track: its index in `recorded`, -1: cannot be recorded
  record::Tracks recorded;            // in file order, without frame rates
  unsigned frameTime_us = 0;          // from the main header
  record::TagOptions tags;
  int64 data = 0;  // offset of the first chunk in movi
};

// `path`: used in messages. `data`: the offset of the first chunk in movi, 0 to look it up. Throws
// Error when there is no movi list, or when no track can be recorded.
Head ReadHead(avi::AviFile& avi, std::string const& path, int64 data = 0);

// Whether two headers have the same tracks, and the data at the same offset.
bool SameTracks(Head const& a, Head const& b);

}  // namespace kestro::tool
