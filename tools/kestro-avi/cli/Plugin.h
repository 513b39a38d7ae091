// Loads the plug-in and creates its objects.
#pragma once

#include <memory>
#include <string>

#include "stream/IDemuxer.h"

namespace kestro::tool {

// Loads the plug-in and registers its classes, as record::LoadAviPlugin does. Throws Error.
void LoadAviPlugin(std::string const& path);

// Creates a demuxer of the loaded plug-in by its alias. Throws Error.
std::unique_ptr<stream::IDemuxer> NewDemuxer(char const* alias);

}  // namespace kestro::tool
