// Finds and loads the plug-in.
#pragma once

#include <string>

#include "recorder/Recorder.h"

namespace kestro::record {

// Loads the plug-in and registers its classes. Recorder.h lists the places it is searched in; with
// a path, or KESTRO_PLUGIN_PATH, only that place is tried. Does nothing when there is no path and
// the classes are already registered.
KESTRO_API Result LoadAviPlugin(std::string const& path = {});

}  // namespace kestro::record
