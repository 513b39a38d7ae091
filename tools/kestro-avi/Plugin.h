// Finding and loading the plug-in.
#pragma once

#include <memory>
#include <string>

#include "stream/IDemuxer.h"

namespace kestro::tool {

// Loads the plug-in and registers its classes. Looked for, in this order: `path`, the environment
// variable KESTRO_PLUGIN_PATH (each a file, or a folder that holds it), next to the executable, in
// the installed plug-in folder, in the build tree. A place that was named is the only one tried.
// Throws Error.
void LoadAviPlugin(std::string const& path);

// A demuxer of the loaded plug-in by its alias. Throws Error.
std::unique_ptr<stream::IDemuxer> NewDemuxer(char const* alias);

}  // namespace kestro::tool
