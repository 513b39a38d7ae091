// The events for which recordings are protected.
#pragma once

#include <string>
#include <vector>

#include "avi/KeepMarker.h"

namespace kestro::tool {

// The events in the marker of a recording; empty if it has no marker. An event without a label and
// times stands for a marker that cannot be read.
std::vector<avi::KeepMarker::Event> ReadMarks(std::string const& recording);

}  // namespace kestro::tool
