// Finding and loading the plug-in.
#pragma once

#include <string>

#include "recorder/Recorder.h"

namespace kestro::record {

// Loads the plug-in and registers its classes, as Recorder describes; a place that was named is the
// only one tried. Nothing is done when no place is named and the classes are registered already.
KESTRO_API Result LoadAviPlugin(std::string const& path = {});

}  // namespace kestro::record
