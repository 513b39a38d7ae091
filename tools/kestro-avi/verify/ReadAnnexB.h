// Reads the tracks of a file in the form that this system records.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "avi/TrackReader.h"

namespace kestro::tool {

// Gets a piece with frames in Annex B form, and its size in the file. Returns false to stop.
using AnnexBSink =
    std::function<bool(std::size_t track, avi::Piece const& piece, std::size_t stored)>;

// Reads the selected tracks as TrackReader does, and converts length-prefixed frames. Returns what
// is wrong with the data, one line each.
std::vector<std::string> ReadAnnexB(avi::AviFile& avi, std::vector<bool> const& selected,
                                    AnnexBSink const& sink,
                                    avi::TrackReader::Range* range = nullptr);

}  // namespace kestro::tool
