// What the head of a recording tells to make it again.
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
  std::vector<avi::AviTrack> tracks;  // as they stand there
  std::vector<int> numbers;           // ... and are recorded, -1 for those that cannot be
  record::Tracks recorded;            // in the order of a file, without frame rates
  unsigned frameTime_us = 0;          // of the main header
  record::TagOptions tags;
  int64 data = 0;  // where the first chunk of movi stands
};

// `path` is for messages. Where the first chunk of movi stands is looked up unless it is known.
// Throws Error where there is no movi list, or no track can be recorded.
Head ReadHead(avi::AviFile& avi, std::string const& path, int64 data = 0);

// Whether two heads tell of the same tracks, with the data at the same place.
bool SameTracks(Head const& a, Head const& b);

}  // namespace kestro::tool
