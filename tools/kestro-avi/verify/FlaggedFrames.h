// Finds video tracks in which the demuxer treats every frame as a key frame.
#pragma once

#include <vector>

#include "avi/AviFile.h"

namespace kestro::tool {

// Some readers treat any flag of an index entry as a key frame flag, and some writers set a flag
// for every frame. For each H.264 and HEVC track whose entries all have flags, returns the first
// entry whose data is not a key frame, if there is one.
std::vector<avi::IndexEntry> FlaggedFrames(avi::AviFile& avi);

}  // namespace kestro::tool
