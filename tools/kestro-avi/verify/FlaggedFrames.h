// Video tracks of which the demuxer takes every frame for a key frame.
#pragma once

#include <vector>

#include "avi/AviFile.h"

namespace kestro::tool {

// Readers may take any flag of an index entry for that of a key frame, and some writers flag every
// frame. Of each H.264 and HEVC track whose entries all have flags, the first one whose frame is no
// key frame by its data; none of a track of key frames only.
std::vector<avi::IndexEntry> FlaggedFrames(avi::AviFile& avi);

}  // namespace kestro::tool
